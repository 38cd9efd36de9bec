// SPDX-License-Identifier: Apache-2.0
#include "report/formats/gzip.h"

#include <zlib.h>

#include <stdexcept>

namespace quarl::report {

std::string gzip(const std::string& bytes) {
  constexpr int kGzipWindow = 15 + 16;
  z_stream stream = {};
  if (deflateInit2(&stream, Z_DEFAULT_COMPRESSION, Z_DEFLATED, kGzipWindow, 8, Z_DEFAULT_STRATEGY) != Z_OK) {
    throw std::runtime_error("gzip cannot be started");
  }
  std::string packed(deflateBound(&stream, bytes.size()), '\0');
  stream.next_in = reinterpret_cast<Bytef*>(const_cast<char*>(bytes.data()));
  stream.avail_in = static_cast<uInt>(bytes.size());
  stream.next_out = reinterpret_cast<Bytef*>(packed.data());
  stream.avail_out = static_cast<uInt>(packed.size());
  int status = deflate(&stream, Z_FINISH);
  packed.resize(stream.total_out);
  deflateEnd(&stream);
  if (status != Z_STREAM_END) throw std::runtime_error("gzip failed");
  return packed;
}

}  // namespace quarl::report
