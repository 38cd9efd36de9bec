// SPDX-License-Identifier: Apache-2.0
// What the C library keeps by design, and what a program has to give back and does not. Each function kept_... leaves
// only the first behind, each leaked_... only the second and whatever the library keeps on the way there.
#define _GNU_SOURCE
#include <dirent.h>
#include <dlfcn.h>
#include <grp.h>
#include <iconv.h>
#include <libintl.h>
#include <locale.h>
#include <netdb.h>
#include <pthread.h>
#include <pwd.h>
#include <regex.h>
#include <search.h>
#include <stdio.h>
#include <stdlib.h>
#include <string.h>
#include <sys/mman.h>
#include <time.h>
#include <unistd.h>
#include <wchar.h>

#define APART __attribute__((noinline, noclone, optimize("no-optimize-sibling-calls")))

static void* volatile sink;
static char* volatile text = "text that is copied";

APART static void kept_locale(void) {
  setlocale(LC_ALL, "C.UTF-8");
  bindtextdomain("keeping", "/nowhere");
  textdomain("keeping");
  sink = gettext("hello");
  mbtowc(NULL, "x", 1);
}

APART static void kept_users(void) {
  sink = getpwnam("root");
  sink = getgrgid(0);
  sink = getservbyname("http", "tcp");
  while (getpwent() != NULL) {
  }
}

APART static void kept_environment(void) {
  setenv("TZ", "Etc/UTC", 1);
}

APART static void kept_time(void) {
  time_t now = 1;
  tzset();
  sink = localtime(&now);
  sink = strerror(9999);
}

APART static void kept_streams(void) {
  printf("%d\n", getchar());
}

static void nothing(void) {}

APART static void kept_exit_handlers(void) {
  for (int index = 0; index < 100; ++index) atexit(nothing);
}

static pthread_key_t last_key;

APART static void kept_thread_data(void) {
  for (int index = 0; index < 40; ++index) pthread_key_create(&last_key, NULL);
  pthread_setspecific(last_key, &last_key);
}

APART static void leaked_strdup(void) {
  sink = strdup(text);
}

APART static void leaked_getline(void) {
  char* line = NULL;
  size_t size = 0;
  FILE* file = fopen("/proc/self/maps", "r");
  sink = getline(&line, &size, file) > 0 ? line : NULL;
  fclose(file);
}

APART static void leaked_fopen(void) {
  sink = fopen("/proc/self/maps", "r");
  fgetc(sink);
}

APART static void leaked_asprintf(void) {
  char* line;
  sink = asprintf(&line, "%s!", text) > 0 ? line : NULL;
}

APART static void leaked_iconv(void) {
  sink = iconv_open("UTF-8", "ASCII");
}

APART static void leaked_regcomp(void) {
  regex_t* expression = calloc(1, sizeof *expression);
  regcomp(expression, "a.*[bc]", 0);
  sink = expression;
}

APART static void leaked_getaddrinfo(void) {
  struct addrinfo hints = {.ai_flags = AI_NUMERICHOST | AI_NUMERICSERV}, *found = NULL;
  getaddrinfo("127.0.0.1", "80", &hints, &found);
  sink = found;
}

APART static void leaked_opendir(void) {
  sink = opendir("/");
}

APART static void leaked_realpath(void) {
  sink = realpath("/", NULL);
}

APART static void leaked_dlopen(void) {
  sink = dlopen("libresolv.so.2", RTLD_NOW);
}

APART static void leaked_mapping(void) {
  sink = mmap(NULL, 8192, PROT_READ | PROT_WRITE, MAP_PRIVATE | MAP_ANONYMOUS, -1, 0);
}

APART static void leaked_newlocale(void) {
  sink = newlocale(LC_CTYPE_MASK, "C.UTF-8", NULL);
}

// Called back by the C library.
APART static int leaked_by_comparison(const void* a, const void* b) {
  sink = malloc(17);
  return a < b ? -1 : a > b;
}

APART static void leaked_by_handler(void) {
  sink = malloc(19);
}

static void* leaked_by_thread(void* argument) {
  sink = malloc(23);
  return argument;
}

int main(void) {
  int numbers[] = {3, 1};
  pthread_t thread;
  kept_locale();
  kept_users();
  kept_environment();
  kept_time();
  kept_streams();
  kept_exit_handlers();
  kept_thread_data();
  leaked_strdup();
  leaked_getline();
  leaked_fopen();
  leaked_asprintf();
  leaked_iconv();
  leaked_regcomp();
  leaked_getaddrinfo();
  leaked_opendir();
  leaked_realpath();
  leaked_dlopen();
  leaked_mapping();
  leaked_newlocale();
  qsort(numbers, 2, sizeof *numbers, leaked_by_comparison);
  atexit(leaked_by_handler);
  pthread_create(&thread, NULL, leaked_by_thread, NULL);
  pthread_join(thread, NULL);
  return 0;
}
