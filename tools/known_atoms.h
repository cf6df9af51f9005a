// All atoms whose fields moviedump can print.
#pragma once

#include <tuple>

#include "toolbox/atoms/fragment_atoms.h"
#include "toolbox/atoms/header_atoms.h"
#include "toolbox/atoms/sample_atoms.h"

namespace tools {

// Two of them have the type 'stsz'. The one with a size for each sample comes first.
using KnownAtoms =
    std::tuple<toolbox::FileType, toolbox::MovieHeader, toolbox::TrackHeader, toolbox::EditEntries,
               toolbox::MediaHeader, toolbox::Handler, toolbox::DataReferences,
               toolbox::SampleDescriptions, toolbox::TimeToSample, toolbox::CompositionOffsets,
               toolbox::SyncSamples, toolbox::PartialSyncSamples, toolbox::SampleToChunk,
               toolbox::SampleSizes, toolbox::ConstantSampleSize, toolbox::CompactSampleSizes,
               toolbox::ChunkOffsets, toolbox::WideChunkOffsets, toolbox::SampleDependencies,
               toolbox::DegradationPriorities, toolbox::PaddingBits, toolbox::SampleToGroup,
               toolbox::TrackDefaults, toolbox::TrackFragmentHeader, toolbox::FragmentDecodeTime,
               toolbox::TrackRun>;

}  // namespace tools
