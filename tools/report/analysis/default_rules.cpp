// SPDX-License-Identifier: Apache-2.0
#include "report/analysis/default_rules.h"

#include <algorithm>
#include <array>

#include "report/analysis/suppressions.h"
#include "report/reading/maps.h"

namespace quarl::report {

// What a program has to give back (strdup, getline, fopen, asprintf, iconv_open, regcomp, getaddrinfo, opendir,
// realpath, dlopen, newlocale and the like) must be no function of a rule. What the libraries keep on the way there may
// be.
const std::vector<DefaultRule>& default_rules() {
  static const std::vector<DefaultRule> kRules = {
      {"locale", "libc", "setlocale", false, "the locale of the process and the data of locales that were loaded"},
      {"locale data", "libc", "newlocale", true,
       "the data of locales that were loaded; the locale_t itself is the program's, for freelocale"},
      {"characters", "libc",
       "mbrtowc mbrlen mbrtoc8 mbrtoc16 mbrtoc32 mbtowc mblen mbstowcs mbsrtowcs mbsnrtowcs wcrtomb c8rtomb c16rtomb "
       "c32rtomb wctomb wcstombs wcsrtombs wcsnrtombs btowc wctob",
       false, "the conversion between bytes and wide characters of a locale"},
      {"messages", "libc",
       "gettext dgettext dcgettext ngettext dngettext dcngettext textdomain bindtextdomain bind_textdomain_codeset",
       false, "catalogues of translated messages, and which there are"},
      {"time zone", "libc",
       "tzset localtime localtime_r localtime64 localtime64_r ctime ctime_r ctime64 ctime64_r mktime mktime64 "
       "timelocal "
       "strftime strftime_l wcsftime wcsftime_l",
       false, "the time zone"},
      {"environment", "libc", "setenv putenv", false,
       "variables, also former values: pointers to them may be anywhere"},
      {"exit handlers", "libc",
       "atexit on_exit at_quick_exit cxa_atexit cxa_at_quick_exit cxa_thread_atexit_impl pthread_atfork "
       "register_atfork",
       false, "the lists of what is to be called at exit or around a fork"},
      {"users and hosts", "libc",
       "getpwnam getpwuid getpwent getpwent_r setpwent fgetpwent getgrnam getgrgid getgrent getgrent_r setgrent "
       "fgetgrent "
       "getspnam getspent getspent_r setspent fgetspent getsgnam getsgent getsgent_r setsgent gethostbyname "
       "gethostbyname2 "
       "gethostbyaddr gethostent gethostent_r sethostent getnetbyname getnetbyaddr getnetent getnetent_r setnetent "
       "getservbyname getservbyport getservent getservent_r setservent getprotobyname getprotobynumber getprotoent "
       "getprotoent_r setprotoent getrpcbyname getrpcbynumber getrpcent getrpcent_r setrpcent getnetgrent "
       "getnetgrent_r "
       "setnetgrent getaliasbyname getaliasent getaliasent_r setaliasent getusershell setusershell getfsent getfsspec "
       "getfsfile setfsent getutent getutid getutline pututline getutxent getutxid getutxline pututxline ttyname "
       "getlogin "
       "getpass",
       false, "the answer of the last call, which the next one overwrites, and the open database until its end...ent"},
      {"name services", "libc", "__nss_* __resolv_context_get*", false,
       "the configuration of name services and of the resolver, one a process or a thread"},
      {"once", "libc", "__libc_allocate_once_slow", false, "what is made once for the rest of the process"},
      {"texts of errors", "libc", "strerror strerror_l strsignal", false,
       "the text of the last unknown error or signal, which the next call overwrites"},
      {"printf", "libc",
       "register_printf_function register_printf_specifier register_printf_modifier register_printf_type", false,
       "the tables of conversions that a program added"},
      {"buffers of streams", "libc",
       "_IO_file_doallocate _IO_wfile_doallocate _IO_default_doallocate _IO_doallocbuf _IO_wdoallocbuf", false,
       "the buffer of a FILE: standard input and output keep theirs. Of a stream that the program did not close the "
       "FILE "
       "itself is told, as fopen or the like asked for it"},
      {"regular expressions", "libc", "re_comp", false, "the one expression of re_comp and re_exec"},
      {"thread data", "libc", "pthread_setspecific tss_set", false,
       "values of the keys above the first 32, until the thread ends"},
      {"unwinder", "libc", "__libc_unwind_link_get", false,
       "libgcc_s, loaded when a thread is cancelled or calls pthread_exit, or a trace is taken"},
      {"loaded files", "ld.so", "_dl_find_object_update _dlfo_mappings_segment_allocate", false,
       "the table by which unwinders find code"},
      {"checker", "libquarl", "quarl::end_thread", false,
       "libgcc_s, loaded when the checker ends a thread for a fault"},
      {"thread storage", "ld.so", "_dl_allocate_tls _dl_allocate_tls_init __tls_get_addr ___tls_get_addr", false,
       "thread-local variables and their tables, until the thread ends and is joined"},
      {"C++ locale", "libstdc++",
       "std::locale::locale std::locale::_Impl::_Impl std::locale::global std::locale::classic", false,
       "the tables of a std::locale: a global one keeps them. An object that holds one is told itself"},
      {"C++ exit handlers", "libstdc++", "__cxa_thread_atexit", false,
       "the list of what is to be called at a thread's end"},
      {"C++ exceptions", "libgcc_s", "_Unwind_Find_FDE", false,
       "sorted unwind information of code that was registered"},
  };
  return kRules;
}

namespace {

struct Library {
  std::string_view name;  // as in the rules; empty where there is no rule for it
  std::string_view file;  // pattern of the base name
};

constexpr std::array<Library, 17> kLibraries = {{{"libc", "^libc.so.6$"},
                                                 {"libc", "^libc-2.*.so$"},
                                                 {"libc", "^libpthread.so.0$"},
                                                 {"libc", "^libpthread-2.*.so$"},
                                                 {"ld.so", "^ld-linux*.so.*"},
                                                 {"ld.so", "^ld-2.*.so$"},
                                                 {"libstdc++", "^libstdc++.so.6*"},
                                                 {"libgcc_s", "^libgcc_s.so.1$"},
                                                 {"libquarl", "^libquarl*.so*"},
                                                 {"", "^libdl.so.2$"},
                                                 {"", "^libdl-2.*.so$"},
                                                 {"", "^libresolv.so.2$"},
                                                 {"", "^libresolv-2.*.so$"},
                                                 {"", "^libnss_files*.so*"},
                                                 {"", "^libnss_dns*.so*"},
                                                 {"", "^libnss_compat*.so*"},
                                                 {"", "^libm.so.6$"}}};

const Library* library_of(const Frame& frame) {
  const std::string file = base_name(frame.module);
  auto found = std::find_if(kLibraries.begin(), kLibraries.end(),
                            [&](const Library& library) { return pattern_matches(library.file, file); });
  return found == kLibraries.end() ? nullptr : &*found;
}

// Symbol tables have a function under several names: "__GI_setlocale", "__mbrtowc", "pthread_create@@GLIBC_2.34".
std::string_view plain(std::string_view name) {
  constexpr std::string_view kInternal = "__GI_";
  if (name.starts_with(kInternal)) name.remove_prefix(kInternal.size());
  name.remove_prefix(std::min(name.find_first_not_of('_'), name.size()));
  return name.substr(0, name.find('@'));
}

// Of a C++ function all parameters are meant.
bool is_called(std::string_view function, std::string_view rule) {
  if (rule.ends_with('*')) return function.starts_with(rule.substr(0, rule.size() - 1));
  if (!function.starts_with(rule)) return false;
  return function.size() == rule.size() || function[rule.size()] == '(';
}

bool names(const DefaultRule& rule, std::string_view function) {
  std::string_view rest = rule.functions;
  while (!rest.empty()) {
    const std::string_view word = rest.substr(0, rest.find(' '));
    if (is_called(function, plain(word))) return true;
    rest.remove_prefix(std::min(word.size() + 1, rest.size()));
  }
  return false;
}

const DefaultRule* rule_at(const Frame& frame, const Library& library, bool asked) {
  if (frame.nearest || frame.function.empty() || library.name.empty()) return nullptr;
  const std::string_view function = plain(frame.function);
  for (const DefaultRule& rule : default_rules()) {
    if (rule.library != library.name || (rule.below_only && asked)) continue;
    if (names(rule, function)) return &rule;
  }
  return nullptr;
}

}  // namespace

const DefaultRule* default_rule_of(const Frames& frames) {
  for (const Frame& frame : frames) {
    const Library* library = library_of(frame);
    if (library == nullptr) return nullptr;
    if (const DefaultRule* rule = rule_at(frame, *library, &frame == &frames.front())) return rule;
  }
  return nullptr;
}

}  // namespace quarl::report
