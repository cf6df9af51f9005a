// Compares what a track of an output presents with what tracks of the inputs present.
#pragma once

#include <cstdint>
#include <map>
#include <memory>
#include <optional>
#include <string>
#include <utility>
#include <vector>

#include "clipinfo/hashes.h"
#include "clipinfo/presented.h"

namespace clipinfo {

// What a comparison has found so far.
struct Findings {
  std::uint64_t samples = 0, bytes = 0;  // that are equal
  HashOfHashes hash;  // of these samples
  std::optional<std::string> difference;  // the first one, in words
  // What the output shows differently by rule, because many players do not know gaps and cannot
  // cut samples: what it is, and how often.
  std::map<std::string, std::uint64_t> byRule;
};

// Both sides, and what is needed to read them. `files` and `hasher` must outlive the comparison.
struct Sides {
  std::vector<Stretch> expected, found;
  Nanoseconds tolerance = 0;  // times that differ by no more are equal but for rounding
  // The times of inputs that list chapters without a track. The output has a track for them.
  std::vector<std::pair<Nanoseconds, Nanoseconds>> listed;
  bool isText = false;
  std::string noun;  // for one sample, such as "picture"
  Files& files;
  Hasher& hasher;
};

// A comparison that is made piece by piece, so that several of them can read one file together.
class Comparison {
 public:
  virtual ~Comparison() = default;
  // The time of the next sample; INT64_MAX at the end or after a difference.
  virtual Nanoseconds Time() const = 0;
  // Compares the next few thousand samples. Throws what reading throws.
  virtual void Advance() = 0;

  Findings findings;
};

std::unique_ptr<Comparison> CompareSamples(Sides sides);
// For tracks whose media are AreFrames.
std::unique_ptr<Comparison> CompareFrames(Sides sides);

// A time for people, such as "40.133 s" or "16.7 ms".
std::string TimeText(Nanoseconds time);
std::string LengthText(Nanoseconds length);
// "1 picture is" or "3 pictures are".
std::string CountText(std::uint64_t count, const std::string& noun);

// Compares sample descriptions. It keeps the last result, because neighbors have the same ones.
class Descriptions {
 public:
  // Whether both samples are decoded alike, whatever kind of file they are from.
  bool AreAlike(const Shown& a, const Shown& b);

 private:
  const toolbox::SampleDescription *a_ = nullptr, *b_ = nullptr;
  bool areAlike_ = false;
};

}  // namespace clipinfo
