#include "vorn/io/decompress.h"

#include <bzlib.h>
#include <zlib.h>

#include <algorithm>
#include <cctype>

#include "vorn/io/limits.h"
#include "vorn/io/parse_error.h"

namespace vorn::io {

namespace {

bool ends_with_nocase(std::string_view name, std::string_view suffix) {
    return name.size() >= suffix.size() &&
           std::equal(
               suffix.begin(), suffix.end(), name.end() - static_cast<long>(suffix.size()),
               [](char a, char b) { return std::tolower(static_cast<unsigned char>(a)) == b; });
}

[[noreturn]] void corrupt(const char* what) {
    throw ParseError({1, 1}, std::string("cannot decompress: ") + what);
}

// Grows `out` for the next chunk of output, refusing to pass the input size limit.
void make_room(std::string& out, std::size_t used) {
    if (used < out.size()) return;
    if (used > kMaxInputBytes) corrupt("the data expands beyond the input size limit");
    out.resize(std::min(std::max<std::size_t>(out.size() * 2, 1 << 16), kMaxInputBytes + 1));
}

std::string gunzip(std::string_view data) {
    z_stream z{};
    if (inflateInit2(&z, 15 + 32) != Z_OK) corrupt("zlib could not start");
    std::string out;
    std::size_t used = 0;
    z.next_in = reinterpret_cast<Bytef*>(const_cast<char*>(data.data()));
    z.avail_in = static_cast<uInt>(std::min<std::size_t>(data.size(), UINT32_MAX));
    int status = Z_OK;
    while (status != Z_STREAM_END) {
        make_room(out, used);
        z.next_out = reinterpret_cast<Bytef*>(out.data() + used);
        z.avail_out = static_cast<uInt>(std::min<std::size_t>(out.size() - used, UINT32_MAX));
        status = inflate(&z, Z_NO_FLUSH);
        used = out.size() - z.avail_out;
        if (status != Z_OK && status != Z_STREAM_END) {
            inflateEnd(&z);
            corrupt("not gzip data, or damaged");
        }
        if (status == Z_OK && z.avail_in == 0 && z.avail_out != 0) {
            inflateEnd(&z);
            corrupt("the gzip data ends early");
        }
    }
    inflateEnd(&z);
    out.resize(used);
    return out;
}

std::string bunzip(std::string_view data) {
    bz_stream bz{};
    if (BZ2_bzDecompressInit(&bz, 0, 0) != BZ_OK) corrupt("libbz2 could not start");
    std::string out;
    std::size_t used = 0;
    bz.next_in = const_cast<char*>(data.data());
    bz.avail_in = static_cast<unsigned>(std::min<std::size_t>(data.size(), UINT32_MAX));
    int status = BZ_OK;
    while (status != BZ_STREAM_END) {
        make_room(out, used);
        bz.next_out = out.data() + used;
        bz.avail_out = static_cast<unsigned>(std::min<std::size_t>(out.size() - used, UINT32_MAX));
        status = BZ2_bzDecompress(&bz);
        used = out.size() - bz.avail_out;
        if (status != BZ_OK && status != BZ_STREAM_END) {
            BZ2_bzDecompressEnd(&bz);
            corrupt("not bzip2 data, or damaged");
        }
        if (status == BZ_OK && bz.avail_in == 0 && bz.avail_out != 0) {
            BZ2_bzDecompressEnd(&bz);
            corrupt("the bzip2 data ends early");
        }
    }
    BZ2_bzDecompressEnd(&bz);
    out.resize(used);
    return out;
}

}  // namespace

Compression compression_of(std::string_view name) {
    if (ends_with_nocase(name, ".gz")) return Compression::Gzip;
    if (ends_with_nocase(name, ".bz2")) return Compression::Bzip2;
    return Compression::None;
}

std::string_view without_compression(std::string_view name) {
    switch (compression_of(name)) {
        case Compression::Gzip:
            return name.substr(0, name.size() - 3);
        case Compression::Bzip2:
            return name.substr(0, name.size() - 4);
        default:
            return name;
    }
}

std::string decompress(std::string_view data, Compression compression) {
    if (compression == Compression::Gzip) return gunzip(data);
    if (compression == Compression::Bzip2) return bunzip(data);
    return std::string(data);
}

}  // namespace vorn::io
