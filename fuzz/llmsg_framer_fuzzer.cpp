// Router bytes through the LLMsg framer three ways (whole, byte by byte, and
// cut at pseudo-random places drawn from the input), plus a reader that
// writes where the framer asks: all must give the same frames and the same
// error.
#include <algorithm>
#include <cstdint>
#include <cstdlib>
#include <string>
#include <utility>
#include <vector>

#include "mq/llmsg.h"

namespace {

using zq::mq::CLLFramer;
using zq::mq::CLLMsg;

struct Outcome {
  std::vector<std::pair<std::uint32_t, std::string>> frames;
  std::uint32_t error = 0;
  std::size_t consumed = 0;
  bool operator==(const Outcome&) const = default;
};

void TakeReady(CLLFramer& framer, Outcome& out) {
  if (!framer.FrameReady()) return;
  const CLLMsg frame = framer.TakeFrame();
  const auto* body = reinterpret_cast<const char*>(frame.Body());
  out.frames.emplace_back(frame.Type(), std::string(body, frame.BodySize()));
}

// Feeds the input in pieces whose sizes come from `next`.
template <class NextSize>
Outcome FeedInPieces(const std::uint8_t* data, std::size_t size, NextSize next) {
  CLLFramer framer;
  Outcome out;
  while (out.consumed < size) {
    std::size_t piece = next();
    if (piece > size - out.consumed) piece = size - out.consumed;
    std::size_t at = 0;
    while (at < piece) {
      const std::size_t taken = framer.Feed(data + out.consumed + at, piece - at);
      at += taken;
      TakeReady(framer, out);
      if (framer.Error() != 0) break;
    }
    out.consumed += at;
    if (framer.Error() != 0) break;
  }
  out.error = framer.Error();
  return out;
}

Outcome ReadWhereAsked(const std::uint8_t* data, std::size_t size) {
  CLLFramer framer;
  Outcome out;
  while (out.consumed < size && framer.Error() == 0) {
    std::uint32_t count = framer.Needed();
    if (count > size - out.consumed) count = static_cast<std::uint32_t>(size - out.consumed);
    std::copy_n(data + out.consumed, count, framer.WritePosition());
    out.consumed += count;
    framer.Commit(count);
    TakeReady(framer, out);
  }
  out.error = framer.Error();
  return out;
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
  std::uint32_t seed = 2166136261u;
  for (std::size_t i = 0; i < size; ++i)
    seed = (seed ^ data[i]) * 16777619u;
  const Outcome whole = FeedInPieces(data, size, [&] { return size; });
  const Outcome bytes = FeedInPieces(data, size, [] { return std::size_t{1}; });
  const Outcome random = FeedInPieces(data, size, [&] {
    seed ^= seed << 13;
    seed ^= seed >> 17;
    seed ^= seed << 5;
    return std::size_t{seed % 41};
  });
  const Outcome asked = ReadWhereAsked(data, size);
  if (!(whole == bytes) || !(whole == random) || !(whole == asked)) std::abort();
  return 0;
}
