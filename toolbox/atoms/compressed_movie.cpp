#include "toolbox/atoms/compressed_movie.h"

#include <libdeflate.h>

#include <algorithm>
#include <memory>
#include <new>

#include "toolbox/atoms/container_atoms.h"
#include "toolbox/refused.h"

namespace toolbox {
namespace {

constexpr FourCC kZlib{"zlib"};

struct CompressionMethod {  // 'dcom'
  static constexpr FourCC kType{"dcom"};
  FourCC method = kZlib;
  static void Fields(auto& io, auto& compression) { io("method", compression.method); }
};

struct CompressedData {  // 'cmvd'
  static constexpr FourCC kType{"cmvd"};
  std::uint32_t size = 0;  // bytes of the whole 'moov' after decompression
  ByteSpan stream;
  static void Fields(auto& io, auto& data) {
    io("size", data.size);
    io.Rest("stream", data.stream);
  }
};

struct CompressedMovie {  // 'cmov'
  static constexpr FourCC kType{"cmov"};
  CompressionMethod method;
  CompressedData data;
  static void Children(auto& io, auto& movie) { io(movie.method, movie.data); }
};

struct CompressedHeader {  // a 'moov' with a 'cmov' and nothing else
  static constexpr FourCC kType = MovieAtoms::kType;
  CompressedMovie movie;
  static void Children(auto& io, auto& header) { io(header.movie); }
};

// The largest movie header that is read from a stream of that length. Deflate can compress 1032 to
// 1, which would turn a file of 4 MB into 4 GB of memory. No real header comes near that.
std::uint64_t MostInflated(std::size_t stream) {
  constexpr std::uint64_t kAlwaysRead = 16 << 20, kMaxInflation = 64;
  return std::max(kAlwaysRead, kMaxInflation * stream);
}

Bytes Inflated(const CompressedData& data) {
  if (data.size > MostInflated(data.stream.size())) {
    throw Malformed("the compressed movie header claims to be too long");
  }
  Bytes inflated(data.size);
  const std::unique_ptr<libdeflate_decompressor, void (*)(libdeflate_decompressor*)> inflater(
      libdeflate_alloc_decompressor(), libdeflate_free_decompressor);
  std::size_t used = 0;
  if (!inflater ||
      libdeflate_zlib_decompress(inflater.get(), data.stream.data(), data.stream.size(),
                                 inflated.data(), inflated.size(), &used) != LIBDEFLATE_SUCCESS) {
    throw Malformed("the compressed movie header is damaged");
  }
  inflated.resize(used);
  return inflated;
}

// A 'moov' with the movie compressed by that level of deflate; 0 stores the bytes as they are.
Bytes CompressedBy(int level, ByteSpan movie) {
  const std::unique_ptr<libdeflate_compressor, void (*)(libdeflate_compressor*)> compressor(
      libdeflate_alloc_compressor(level), libdeflate_free_compressor);
  if (!compressor) throw std::bad_alloc();
  // The room is not initialized, because compression leaves most of it unused.
  const std::size_t room = libdeflate_zlib_compress_bound(compressor.get(), movie.size());
  const auto stream = std::make_unique_for_overwrite<std::uint8_t[]>(room);
  const std::size_t size =
      libdeflate_zlib_compress(compressor.get(), movie.data(), movie.size(), stream.get(), room);
  // Inflate would refuse this header if it were compressed so much, so it is only stored.
  if (movie.size() > MostInflated(size)) return CompressedBy(0, movie);
  CompressedHeader header;
  header.movie.data = {static_cast<std::uint32_t>(movie.size()), ByteSpan(stream.get(), size)};
  return Encode(header);
}

}  // namespace

Bytes CompressMovie(ByteSpan movie) {
  // The fastest level. The next one saves a few percent of a header of 100 MB and takes twice the
  // time.
  return CompressedBy(1, movie);
}

Bytes Inflate(ByteSpan content) {
  const auto movie = Decode<CompressedMovie>(content);
  if (movie.method.method != kZlib) {
    throw Refused{cantFindHandler, "the method of compression is unknown"};
  }
  return InAtom(CompressedMovie::kType, [&] {
    Bytes inflated = Inflated(movie.data);
    const auto frame = ReadFrame(inflated, inflated.size());
    if (!frame || frame->type != MovieAtoms::kType) {
      throw Malformed("the compressed data is not a movie header");
    }
    inflated.resize(frame->size);
    inflated.erase(inflated.begin(),
                   inflated.begin() + static_cast<std::ptrdiff_t>(frame->headerSize));
    return inflated;
  });
}

std::optional<Bytes> InflatedMovie(ByteSpan content) {
  const auto first = ReadFrame(content, content.size());
  if (!first || first->type != CompressedMovie::kType) return std::nullopt;
  return InAtom(MovieAtoms::kType, [&] {
    return Inflate(content.subspan(first->headerSize, first->size - first->headerSize));
  });
}

}  // namespace toolbox
