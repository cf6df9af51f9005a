// Media that no file brought: what their atoms say until something is put into them.
#pragma once

#include <optional>

#include "toolbox/atoms/text_atoms.h"
#include "toolbox/movie/media.h"

namespace toolbox {

// An empty media of that kind with the one data reference. `isIso`: as the media of an MPEG-4 file
// name their handlers, else as those of a QuickTime movie do.
MediaRecord NewMedia(FourCC type, std::int32_t scale, DataReference where, bool isIso);

// A sample of a text media: a count, the text, and which encoding it is in. A text that is too long
// for its count is cut between two characters of UTF-8.
Bytes TextSample(ByteSpan text, std::optional<std::uint32_t> encoding);
// The description of samples of which all that is said.
SampleDescription DescriptionOf(const TextDescription& text);

}  // namespace toolbox
