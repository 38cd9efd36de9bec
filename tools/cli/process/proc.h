// SPDX-License-Identifier: Apache-2.0
// What the kernel says of processes and their threads, through /proc.
#pragma once

#include <sys/types.h>

#include <cstdint>
#include <filesystem>
#include <optional>
#include <string>
#include <vector>

namespace quarl {

// The whole file, or "" when it cannot be read (the process may be gone at any moment).
std::string read_proc(pid_t pid, const std::string& file);

// Paths of the files that the process has open; none when it is another user's.
std::vector<std::filesystem::path> open_files(pid_t pid);

// Thread ids; empty when the process is gone.
std::vector<pid_t> threads_of(pid_t pid);

// The process and all that it started that are still there and were not handed to init.
std::vector<pid_t> process_tree(pid_t root);

// All that are there.
std::vector<pid_t> all_processes();

// "name", at most 15 characters.
std::string thread_name(pid_t pid, pid_t tid);

// Neither gone nor a zombie: running, sleeping or stopped.
bool thread_lives(pid_t pid, pid_t tid);

// The thread takes no signals: the agent, or one that the emulator has for itself.
bool blocks_signals(pid_t pid, pid_t tid);

// The text of its maps and its current directory; "" when the process is gone or belongs to somebody else.
std::string memory_map(pid_t pid);
std::string current_directory(pid_t pid);

// libquarl.so is mapped into the process.
bool runs_under_checker(pid_t pid);

// Only the checker's agent, and threads of the emulator, live in the process any more: the program itself has ended.
bool only_agent_left(pid_t pid);

// The process is an emulator that runs an ARM program.
bool is_emulated(pid_t pid);

// The number on this machine of a program's signal: the emulator's own C library keeps two real-time signals of this
// machine, so that all real-time signals of an emulated program are moved up by two.
int machine_signal(int signal, bool emulated);

// The value of an environment variable that the program in that process was started with.
std::optional<std::string> environment_of(pid_t pid, const std::string& name);

// 8 bytes of the process's memory.
std::optional<uint64_t> read_memory(pid_t pid, uint64_t address);

}  // namespace quarl
