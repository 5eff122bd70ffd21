// A plugin of the emulator: counts the instructions that a program executes, and prints their
// number at its end. What it declares is the emulator's interface, version 1, of which the system
// has no header.
#include <stddef.h>
#include <stdint.h>
#include <stdio.h>

struct qemu_plugin_tb;  // instructions that are executed one after the other
typedef uint64_t qemu_plugin_id_t;
enum { kAddInline = 0 };

size_t qemu_plugin_tb_n_insns(const struct qemu_plugin_tb* block);
void qemu_plugin_register_vcpu_tb_trans_cb(qemu_plugin_id_t id,
                                           void (*call)(qemu_plugin_id_t, struct qemu_plugin_tb*));
void qemu_plugin_register_vcpu_tb_exec_inline(struct qemu_plugin_tb* block, int operation,
                                              void* number, uint64_t operand);
void qemu_plugin_register_atexit_cb(qemu_plugin_id_t id, void (*call)(qemu_plugin_id_t, void*),
                                    void* data);

int qemu_plugin_version = 1;

static uint64_t count;

static void OnTranslation(qemu_plugin_id_t id, struct qemu_plugin_tb* block) {
  (void)id;
  qemu_plugin_register_vcpu_tb_exec_inline(block, kAddInline, &count,
                                           qemu_plugin_tb_n_insns(block));
}

static void OnExit(qemu_plugin_id_t id, void* data) {
  (void)id;
  (void)data;
  fprintf(stderr, "%llu\n", (unsigned long long)count);
}

int qemu_plugin_install(qemu_plugin_id_t id, const void* info, int argc, char** argv) {
  (void)info;
  (void)argc;
  (void)argv;
  qemu_plugin_register_vcpu_tb_trans_cb(id, OnTranslation);
  qemu_plugin_register_atexit_cb(id, OnExit, NULL);
  return 0;
}
