// SPDX-License-Identifier: Apache-2.0
#include "target/launch_command.h"

#include <sys/utsname.h>

#include <cstdlib>
#include <filesystem>
#include <string_view>

#include "refusal.h"

namespace quarl {
namespace {

namespace fs = std::filesystem;

bool machine_is_arm() {
  struct utsname machine;
  if (uname(&machine) != 0) return false;
  return std::string_view(machine.machine).starts_with("arm") || std::string_view(machine.machine) == "aarch64";
}

// What was preloaded anyway stays preloaded.
std::string preload_list(const std::string& library) {
  const char* before = std::getenv("LD_PRELOAD");
  return before && *before ? library + ":" + before : library;
}

std::string missing_loader(const Program& program) {
  if (!fs::path(program.elf.interpreter).filename().string().starts_with("ld-linux")) {
    return "it is the loader of another C library, and libquarl.so needs glibc: build the program for that";
  }
  switch (program.elf.target) {
    case Target::kI686:
      return "install libc6-i386, or name a folder with the target's files with --sysroot";
    case Target::kArmhf:
      return "install libc6-armhf-cross, or name a folder with the target's files with --sysroot";
    case Target::kArmel:
      return "install libc6-armel-cross, or name a folder with the target's files with --sysroot";
  }
  return "";
}

void check_loader(const Program& program, const std::string& sysroot) {
  if (!sysroot.empty() && !fs::is_directory(sysroot)) {
    refuse("sysroot {}: no such folder; {}", sysroot, missing_loader(program));
  }
  // The folder's own absolute links lead out of it, so a link counts as the file.
  std::string loader = sysroot + program.elf.interpreter;
  if (fs::exists(fs::symlink_status(loader))) return;
  refuse("{} needs the loader {}, and there is no {}; {}", program.path, program.elf.interpreter, loader,
         missing_loader(program));
}

void append(std::vector<std::string>& argv, const std::vector<std::string>& more) {
  argv.insert(argv.end(), more.begin(), more.end());
}

std::string library_folders(const std::string& sysroot) {
  std::string list;
  for (const char* folder : {"/lib/i386-linux-gnu", "/usr/lib/i386-linux-gnu", "/lib", "/usr/lib"}) {
    if (fs::is_directory(sysroot + folder)) list += (list.empty() ? "" : ":") + sysroot + folder;
  }
  return list;
}

LaunchCommand native(const Program& program, const std::string& library, const std::string& sysroot) {
  LaunchCommand command{{}, {{"LD_PRELOAD", preload_list(library)}}, false};
  if (!sysroot.empty()) {
    command.argv = {sysroot + program.elf.interpreter, "--library-path", library_folders(sysroot)};
  }
  command.argv.push_back(program.path);
  return command;
}

LaunchCommand emulated(const Program& program, const std::string& library, const std::string& sysroot) {
  auto emulator = search_path("qemu-arm", "");
  if (!emulator) refuse("ARM programs run on this machine through qemu-arm; install qemu-user");
  return {{*emulator, "-L", sysroot, "-E", "LD_PRELOAD=" + library, program.path}, {}, true};
}

}  // namespace

std::string default_sysroot(Target target) {
  if (target == Target::kI686 || machine_is_arm()) return "";
  return target == Target::kArmhf ? "/usr/arm-linux-gnueabihf" : "/usr/arm-linux-gnueabi";
}

LaunchCommand make_launch_command(const Program& program, const std::vector<std::string>& arguments,
                                  const std::string& library, const std::string& sysroot) {
  check_loader(program, sysroot);
  bool emulate = program.elf.target != Target::kI686 && !machine_is_arm();
  LaunchCommand command = emulate ? emulated(program, library, sysroot) : native(program, library, sysroot);
  append(command.argv, program.leading);
  append(command.argv, arguments);
  return command;
}

}  // namespace quarl
