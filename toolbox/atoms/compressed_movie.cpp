#include "toolbox/atoms/compressed_movie.h"

#include <isa-l/igzip_lib.h>
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
  if (!inflater) throw std::bad_alloc();
  std::size_t used = 0;
  if (libdeflate_zlib_decompress(inflater.get(), data.stream.data(), data.stream.size(),
                                 inflated.data(), inflated.size(), &used) != LIBDEFLATE_SUCCESS) {
    throw Malformed("the compressed movie header is damaged");
  }
  inflated.resize(used);
  return inflated;
}

// The 'moov' with that zlib stream of a movie header of `size` bytes.
Bytes WithStream(ByteSpan stream, std::uint64_t size) {
  CompressedHeader header;
  header.movie.data = {static_cast<std::uint32_t>(size), stream};
  return Encode(header);
}

}  // namespace

// ISA-L is three times as fast as libdeflate at sample tables, and its streams are shorter.
struct MovieDeflater::State {
  isal_zstream stream = {};
  Bytes levelBuffer = Bytes(ISAL_DEF_LVL1_DEFAULT);
  Bytes result;
  std::uint64_t size = 0;  // bytes of the movie header so far

  State() {
    isal_deflate_init(&stream);
    stream.level = 1;  // higher levels take longer, and the result is not smaller
    stream.level_buf = levelBuffer.data();
    stream.level_buf_size = ISAL_DEF_LVL1_DEFAULT;
    stream.gzip_flag = IGZIP_ZLIB;
  }

  void Append(ByteSpan bytes) {
    stream.next_in = const_cast<std::uint8_t*>(bytes.data());  // it is only read
    stream.avail_in = static_cast<std::uint32_t>(bytes.size());
    do {
      std::uint8_t block[64 << 10];
      stream.next_out = block;
      stream.avail_out = sizeof block;
      if (isal_deflate(&stream) != COMP_OK) {
        throw Refused{ioErr, "the movie header cannot be compressed"};
      }
      result.insert(result.end(), block, stream.next_out);
    } while (stream.avail_out == 0);
    size += bytes.size();
  }
};

MovieDeflater::MovieDeflater() : state_(std::make_unique<State>()) {}
MovieDeflater::~MovieDeflater() = default;

void MovieDeflater::Append(ByteSpan bytes) { state_->Append(bytes); }

std::optional<Bytes> MovieDeflater::Finish() {
  state_->stream.end_of_stream = 1;
  state_->Append({});
  if (state_->size > MostInflated(state_->result.size())) return std::nullopt;
  return WithStream(state_->result, state_->size);
}

Bytes StoreMovie(ByteSpan movie) {
  const std::unique_ptr<libdeflate_compressor, void (*)(libdeflate_compressor*)> compressor(
      libdeflate_alloc_compressor(0), libdeflate_free_compressor);
  if (!compressor) throw std::bad_alloc();
  Bytes stream(libdeflate_zlib_compress_bound(compressor.get(), movie.size()));
  stream.resize(libdeflate_zlib_compress(compressor.get(), movie.data(), movie.size(),
                                         stream.data(), stream.size()));
  return WithStream(stream, movie.size());
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
