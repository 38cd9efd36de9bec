// SPDX-License-Identifier: Apache-2.0
#include "report/formats/text_page.h"

#include <algorithm>

#include "report/formats/operation_name.h"

namespace quarl::report {
namespace {

constexpr size_t kTopOfSummary = 10;

void write_field(Output& output, const char* name, const std::string& value) {
  output.print("{} {}\n", output.bold(fmt::format("{:<12}", name)), without_controls(value));
}

std::string age(const Site& site) {
  if (site.oldest == 0) return "";
  if (site.oldest == site.newest) return fmt::format(", since {}", clock_time(site.oldest));
  return fmt::format(", oldest {}, newest {}", clock_time(site.oldest), clock_time(site.newest));
}

std::string sizes(const Site& site) {
  if (site.usage.count == 1) return "";
  if (site.smallest == site.largest) return fmt::format(", {} each", counted(site.smallest, "byte"));
  return fmt::format(", {} to {} each", grouped(site.smallest), counted(site.largest, "byte"));
}

void write_frames(Output& output, const Frames& frames) {
  size_t number = 0;
  if (!frames.empty() && !frames.front().entry.empty()) output.print("    in  {}\n", frames.front().entry);
  for (const Frame& frame : frames)
    output.print("    #{:<2} {}{}\n", number++, without_controls(describe(frame, output.names())),
                 frame.inlined ? " [inlined]" : "");
}

Usage of_kind(Subject& subject, bool mapping, bool file) {
  Usage usage;
  subject.for_each_unfreed([&](const LiveEntry& entry) {
    if (is_mapping(entry) != mapping || entry.from_file != file) return;
    usage += {entry.size, 1};
  });
  return usage;
}

void write_statistics(Output& output, Subject& subject) {
  Table statistics = statistics_rows(subject);
  if (statistics.rows.empty()) return;
  output.print("\n{}\n", output.bold("Statistics"));
  write_text(output, statistics);
}

void write_recorded(Output& output, const Held& held) {
  write_field(output, "Held", fmt::format("{}, at most {}", counted(held.bytes, "byte"), grouped(held.peak)));
  write_field(output, "From files",
              fmt::format("{}, at most {}", counted(held.file_bytes, "byte"), grouped(held.file_peak)));
}

std::string at_most(uint32_t peak) {
  auto known = known_peak(peak);
  return known ? fmt::format("at most {}", grouped(*known)) : "the most is not known: it was below zero once";
}

// As the library did.
void write_counted(Output& output, const char* name, const ProfInfo& statistics) {
  auto bytes = [](int64_t count) { return fmt::format("{} bytes", count < 0 ? grouped_sign(count) : grouped(count)); };
  write_field(output, name,
              fmt::format("{}, {}{}", bytes(held_bytes(statistics)), at_most(statistics.unfree_peak),
                          peak_is_exact(statistics) ? "" : " (a large block counts twice for a moment)"));
  write_field(output, "  from files",
              fmt::format("{}, {}", bytes(held_file_bytes(statistics)), at_most(statistics.unfree_file_peak)));
}

void write_held(Output& output, Subject& subject) {
  const ProfInfo* statistics = subject.counted();
  const SiteTable& sites = subject.sites();
  output.print("\n");
  bool in_order = subject.log().kind() == LogKind::kRecords;
  if (in_order) write_recorded(output, subject.ledger().held());
  if (statistics != nullptr) write_counted(output, in_order ? "Counted" : "Held", *statistics);
  if (auto resident = subject.resident()) {
    write_field(output, "Resident", fmt::format("{}, of the whole process", counted(*resident, "byte")));
  }
  write_field(output, "Unfreed", in_blocks(sites.total()));
  write_field(output, "  heap", in_blocks(of_kind(subject, false, false)));
  write_field(output, "  mappings", in_blocks(of_kind(subject, true, false)));
  write_field(output, "  files", in_blocks(of_kind(subject, true, true)));
  const LeftOut& left_out = sites.left_out();
  if (left_out.by_user.count != 0) write_field(output, "Suppressed", in_blocks(left_out.by_user));
  if (left_out.by_default.count != 0) write_field(output, "Left out", kept_text(left_out.by_default));
}

void write_neighbour(Output& output, Subject& subject, const char* side, const std::optional<Neighbour>& neighbour) {
  if (!neighbour) return output.print("  {}: no held block\n", side);
  const LiveEntry& block = neighbour->block;
  output.print("  {}: {} at 0x{:08x}, {} away, asked for by\n", side, counted(block.size, "byte"), block.address,
               counted(neighbour->distance, "byte"));
  write_frames(output, subject.symbolizer().trace(subject.ledger().traces().addresses(block.trace)));
}

void write_fault(Output& output, Subject& subject, const Fault& fault) {
  const OpRecord& record = fault.record;
  output.print("\n{}\n", output.styled(fmt::format("{} of a block of {} at 0x{:08x}", result_name(record.result),
                                                   counted(record.size, "byte"), record.start_addr),
                                       fmt::emphasis::bold | fmt::fg(fmt::terminal_color::red)));
  output.print("  {} by thread {}, number {}, {}; asked for by\n", operation_name(record.operation), record.tid,
               record.seq_num, clock_time(record.time));
  write_frames(output, subject.symbolizer().trace(trace_of(record)));
  write_neighbour(output, subject, "below", fault.below);
  write_neighbour(output, subject, "above", fault.above);
}

void write_node(Output& output, const CallNode& node, const std::string& indent, uint64_t whole) {
  for (const CallNode& child : node.children) {
    double share = whole == 0 ? 0 : 100.0 * static_cast<double>(child.usage.bytes) / static_cast<double>(whole);
    output.print("{:>16} {:>10} {:5.1f}%  {}{}\n", grouped(child.usage.bytes), grouped(child.usage.count), share,
                 indent, without_controls(child.name));
    write_node(output, child, indent + "  ", whole);
  }
}

}  // namespace

std::string in_blocks(const Usage& usage) {
  return fmt::format("{} in {}", counted(usage.bytes, "byte"), counted(usage.count, "block"));
}

std::string kept_text(const Usage& usage) {
  return in_blocks(usage) + " that the C and C++ libraries keep by design (--no-default-suppressions shows it)";
}

void write_left_out(Output& output, const LeftOut& left_out) {
  if (left_out.by_user.count != 0) output.print("{} suppressed\n", in_blocks(left_out.by_user));
  if (left_out.by_default.count != 0) output.print("left out: {}\n", kept_text(left_out.by_default));
}

void write_place(Output& output, const Site& site) {
  if (site.frames.empty()) output.print("    {}\n", without_controls(site.name));
  write_frames(output, site.frames);
}

void write_remainder(Output& output, size_t shown, size_t all) {
  if (all > shown) output.print("  ... {} more (--top {} shows all)\n", grouped(all - shown), all);
}

void write_heading(Output& output, Subject& subject) {
  const LogHeader& header = subject.snapshot().header;
  write_field(output, "Log",
              fmt::format("{} ({}, {})", subject.label(), name_of(subject.log().kind()),
                          counted(subject.pass().records(), "record")));
  write_field(output, "Process",
              fmt::format("{}, process id {}, {}-endian", subject.log().process_name(), header.pid,
                          header.byte_order == kBigEndian ? "big" : "little"));
  write_field(output, "Program", subject.symbolizer().maps().program());
  write_field(output, "Written", clock_time(header.time));
  for (const std::string& loss : subject.losses()) write_field(output, "Not whole", loss);
}

void write_summary(Output& output, Subject& subject, size_t top) {
  write_heading(output, subject);
  write_statistics(output, subject);
  write_held(output, subject);
  output.print("\n{}\n", output.bold("Unfreed by size"));
  write_text(output, histogram_rows(histogram_of_unfreed(subject)));
  output.print("\n");
  write_field(output, "Faults", grouped(subject.ledger().faults().count()));
  const std::vector<Site>& sites = subject.sites().sites();
  if (sites.empty()) return;
  output.print("\n{}\n", output.bold("Largest leak sites"));
  write_text(output, without_column(site_rows(sites, std::min(top, kTopOfSummary), output.names()), "source"));
}

void write_sites(Output& output, const SiteTable& sites, size_t top, const std::string& state) {
  output.print("{} {}\n", output.bold(in_blocks(sites.total())), state);
  write_left_out(output, sites.left_out());
  size_t shown = 0;
  for (const Site& site : sites.sites()) {
    if (shown++ == top) break;
    output.print("\n{} ({}){}{}\n", output.bold(in_blocks(site.usage)), site.kind(), sizes(site), age(site));
    write_place(output, site);
  }
  write_remainder(output, std::min(top, sites.sites().size()), sites.sites().size());
}

void write_tree(Output& output, const CallNode& root, const char* order) {
  output.print("{}\n", output.bold(fmt::format("{:>16} {:>10} {:>6}  {}", "bytes", "blocks", "", order)));
  output.print("{:>16} {:>10} {:5.1f}%  everything\n", grouped(root.usage.bytes), grouped(root.usage.count), 100.0);
  write_node(output, root, "  ", root.usage.bytes);
}

void write_changes(Output& output, const std::vector<SiteDifference>& changes, size_t top, const LeftOut& left_out) {
  int64_t bytes = 0, blocks = 0;
  for (const SiteDifference& change : changes) bytes += change.bytes(), blocks += change.count();
  output.print("{} bytes in {} blocks between the two\n", output.bold(grouped_sign(bytes)), grouped_sign(blocks));
  write_left_out(output, left_out);
  size_t shown = 0;
  for (const SiteDifference& change : changes) {
    if (shown++ == top) break;
    auto color = change.bytes() > 0 ? fmt::terminal_color::red : fmt::terminal_color::green;
    std::string growth =
        output.styled(fmt::format("{} bytes", grouped_sign(change.bytes())), fmt::emphasis::bold | fmt::fg(color));
    output.print("\n{}: {}, {} blocks (from {} to {})\n", name_of(change.change), growth, grouped_sign(change.count()),
                 in_blocks(change.before), in_blocks(change.after));
    write_place(output, change.site);
  }
  write_remainder(output, std::min(top, changes.size()), changes.size());
}

void write_faults(Output& output, Subject& subject) {
  const FaultList& faults = subject.ledger().faults();
  output.print("{}\n", output.bold(counted(faults.count(), "fault")));
  for (const std::string& loss : subject.losses()) write_field(output, "Not whole", loss);
  if (faults.count() > faults.all().size()) {
    output.print("The first {} are shown.\n", grouped(faults.all().size()));
  }
  for (const Fault& fault : faults.all()) write_fault(output, subject, fault);
}

void write_threads(Output& output, const ThreadTallies& tallies) {
  output.print("{} {}, {}\n", counted(tallies.threads.size(), "thread"),
               tallies.from_table ? "from the thread table" : "counted from the records",
               tallies.seconds == 0 ? "no rates: less than a second is covered, or its times were not recorded"
                                    : fmt::format("rates over {}", counted(tallies.seconds, "second")));
  write_text(output, thread_rows(tallies));
  if (!tallies.from_table) return;
  output.print("held: what a thread allocated less what it released, whoever had allocated that\n");
  const bool exact = std::all_of(tallies.threads.begin(), tallies.threads.end(),
                                 [](const ThreadTally& thread) { return !thread.peak || thread.peak_exact; });
  if (!exact)
    output.print("peak: of threads with blocks of 128 KiB and more, such a block counts twice for a moment\n");
}

}  // namespace quarl::report
