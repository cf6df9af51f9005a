// What packets of compressed sound need to be decoded right.
#pragma once

#include <cstdint>
#include <optional>

#include "toolbox/atoms/decoder_config.h"
#include "toolbox/bytes.h"
#include "toolbox/movie/sample_table.h"

namespace toolbox {

// The configuration of AAC-LC. Nothing for other sound, and for low rates: they can have SBR that
// only the coded sound tells of.
std::optional<AudioConfig> LowComplexityConfig(ByteSpan description);

// Whether packets of sound with that description need at most the packet before them: AAC-LC, ALAC
// and AC-3. With SBR or a bit reservoir, a packet needs more.
bool NeedsOnePacketBefore(ByteSpan description);

// How many packets before `first` have only the delay of the encoder, and what a decoder needs
// first: they start the file, and are too few to be sound that a user has cut off.
std::uint64_t DelayPackets(const SampleTable& samples, std::uint64_t first);

}  // namespace toolbox
