// SPDX-License-Identifier: Apache-2.0
/* A plugin of qemu's user emulators: counts the instructions that the program executes, and prints the sum on standard
 * error at its end. For programs of one thread. What follows first is the part of the plugin interface that it needs;
 * its header comes with no Debian package. */
#include <inttypes.h>
#include <stddef.h>
#include <stdio.h>

#define EXPORT __attribute__((visibility("default")))

typedef uint64_t qemu_plugin_id_t;
struct qemu_info;
struct qemu_plugin_tb; /* a run of instructions that is translated as one */
enum qemu_plugin_op { QEMU_PLUGIN_INLINE_ADD_U64 };

void qemu_plugin_register_vcpu_tb_trans_cb(qemu_plugin_id_t id, void (*call)(qemu_plugin_id_t, struct qemu_plugin_tb*));
void qemu_plugin_register_vcpu_tb_exec_inline(struct qemu_plugin_tb* tb, enum qemu_plugin_op op, void* word,
                                              uint64_t value);
void qemu_plugin_register_atexit_cb(qemu_plugin_id_t id, void (*call)(qemu_plugin_id_t, void*), void* data);
size_t qemu_plugin_tb_n_insns(const struct qemu_plugin_tb* tb);

EXPORT int qemu_plugin_version = 1;

static uint64_t executed;

static void translated(qemu_plugin_id_t id, struct qemu_plugin_tb* tb) {
  (void)id;
  qemu_plugin_register_vcpu_tb_exec_inline(tb, QEMU_PLUGIN_INLINE_ADD_U64, &executed, qemu_plugin_tb_n_insns(tb));
}

static void tell(qemu_plugin_id_t id, void* data) {
  (void)id;
  (void)data;
  fprintf(stderr, "instructions: %" PRIu64 "\n", executed);
}

EXPORT int qemu_plugin_install(qemu_plugin_id_t id, const struct qemu_info* info, int argc, char** argv) {
  (void)info;
  (void)argc;
  (void)argv;
  qemu_plugin_register_vcpu_tb_trans_cb(id, translated);
  qemu_plugin_register_atexit_cb(id, tell, NULL);
  return 0;
}
