#pragma once

// Compressed inputs: a file whose name ends in .gz or .bz2 (any case) is read through zlib or
// libbz2, so that collections distributed compressed (Netlib's MPS files) are read as they come.

#include <string>
#include <string_view>

namespace vorn::io {

enum class Compression { None, Gzip, Bzip2 };

// By the file name's last extension.
Compression compression_of(std::string_view name);
// The name without its compression extension: "afiro.mps.bz2" → "afiro.mps".
std::string_view without_compression(std::string_view name);

// The decompressed bytes; ParseError at 1:1 when the data is corrupt or would exceed
// kMaxInputBytes.
std::string decompress(std::string_view data, Compression compression);

}  // namespace vorn::io
