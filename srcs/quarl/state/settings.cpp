// SPDX-License-Identifier: Apache-2.0
#include "state/settings.h"

namespace quarl {

constinit Settings settings;

}  // namespace quarl

extern "C" {
constinit int qr_sig_num = 14;
constinit int QR_TRACE_MMAP = 0;
}
