// SPDX-License-Identifier: Apache-2.0
// Rules from .debug_frame or .eh_frame, read by elfutils.
#pragma once

#include <elfutils/libdw.h>

#include "frames/elf/elf_module.h"
#include "frames/sources/rule_source.h"

namespace quarl::frames {

class CfiRules : public RuleSource {
 public:
  // `source` is kDebugFrame or kEhFrame.
  CfiRules(const ElfModule& module, Source source);
  bool present() const { return cfi_ != nullptr; }
  Source source() const override { return source_; }
  std::optional<SourcedRule> rule(const CallSite& call) override;

 private:
  std::optional<FrameRule> read(Dwarf_Frame* frame) const;
  std::optional<int16_t> place(Dwarf_Frame* frame, int reg) const;
  bool canonical(Dwarf_Frame* frame, FrameRule& rule) const;

  bool arm_;
  Source source_;
  Dwarf_Addr bias_ = 0;
  Dwarf_CFI* cfi_;
};

}  // namespace quarl::frames
