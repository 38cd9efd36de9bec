// SPDX-License-Identifier: Apache-2.0
#include "frames/batch/batch.h"

#include <fmt/format.h>
#include <unistd.h>

#include <atomic>
#include <cerrno>
#include <cstdio>
#include <cstring>
#include <mutex>
#include <thread>

#include "report/reading/progress.h"

namespace quarl::frames {
namespace {

// Under a name of its own first: another process may write or map the same table.
void write_table(const std::string& path, const std::vector<uint8_t>& bytes, size_t number) {
  std::string fresh = fmt::format("{}.{}.{}", path, getpid(), number);
  FILE* file = std::fopen(fresh.c_str(), "wb");
  bool written = file != nullptr && std::fwrite(bytes.data(), 1, bytes.size(), file) == bytes.size();
  written = file != nullptr && std::fclose(file) == 0 && written && std::rename(fresh.c_str(), path.c_str()) == 0;
  if (written) return;
  std::string why = std::strerror(errno);
  std::remove(fresh.c_str());
  throw std::runtime_error(fmt::format("{} cannot be written: {}", path, why));
}

class Batch {
 public:
  Batch(const std::vector<ElfPath>& files, const std::string& folder, const TableOptions& options)
      : files_(files),
        folder_(folder),
        options_(options),
        outcomes_(files.size()),
        progress_("unwind rules", files.size()) {}

  std::vector<Outcome> run() {
    {
      std::vector<std::jthread> workers;
      unsigned count = std::max(1u, std::thread::hardware_concurrency());
      for (unsigned index = 0; index < count; ++index) workers.emplace_back([this] { work(); });
    }
    if (!failure_.empty()) throw std::runtime_error(failure_);
    return std::move(outcomes_);
  }

 private:
  void work() {
    for (size_t index; (index = next_++) < files_.size();) {
      outcomes_[index] = make(index);
      std::scoped_lock lock(mutex_);
      progress_.update(++done_);
    }
  }

  Outcome make(size_t index) {
    Outcome outcome{files_[index], {}, {}, {}};
    try {
      outcome.made = make_table(files_[index].path, files_[index].target_path, options_);
      std::string name = outcome.made.id.file_name();
      write_table(folder_ + "/" + name, outcome.made.bytes, index);
      outcome.table = name;
      outcome.made.bytes = {};
    } catch (const NoCode&) {
    } catch (const NoModule& why) {
      outcome.refusal = why.what();
    } catch (const std::exception& error) {
      std::scoped_lock lock(mutex_);
      failure_ = error.what();
      next_ = files_.size();
    }
    return outcome;
  }

  const std::vector<ElfPath>& files_;
  const std::string& folder_;
  const TableOptions& options_;
  std::vector<Outcome> outcomes_;
  std::atomic<size_t> next_ = 0;
  std::mutex mutex_;
  size_t done_ = 0;
  std::string failure_;
  report::Progress progress_;
};

}  // namespace

std::vector<Outcome> make_tables(const std::vector<ElfPath>& files, const std::string& folder,
                                 const TableOptions& options) {
  return Batch(files, folder, options).run();
}

}  // namespace quarl::frames
