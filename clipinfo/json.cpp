#include <algorithm>
#include <boost/algorithm/hex.hpp>
#include <iostream>
#include <iterator>
#include <map>
#include <nlohmann/json.hpp>
#include <utility>

#include "clipinfo/facts.h"
#include "clipinfo/formats.h"
#include "clipinfo/modes.h"
#include "toolbox/atoms/base64.h"
#include "toolbox/atoms/sample_entries.h"

namespace clipinfo {
namespace {

using Json = nlohmann::ordered_json;
using toolbox::FourCC;
using toolbox::TrackRecord;

constexpr FourCC kMeta{"meta"};

// Prints JSON piece by piece: a movie can have millions of edits, and a tree of all of them would
// take gigabytes. An object has its members on one line, except arrays, which have a line for each
// element.
class Printer {
 public:
  explicit Printer(std::ostream& out) : out_(out) {}

  void Open(char bracket) {
    Separate();
    out_ << bracket;
    isFirst_ = true;
    ++depth_;
  }
  void Close(char bracket) {
    --depth_;
    if (!isFirst_) NewLine();
    out_ << bracket;
    isFirst_ = false;
  }
  void Name(const char* name) {
    Separate();
    out_ << '"' << name << "\": ";
    isNamed_ = true;
  }
  // Text that is not UTF-8, as the names of files can be, gets U+FFFD for each wrong byte.
  void Value(const Json& value) {
    Separate();
    out_ << value.dump(-1, ' ', false, Json::error_handler_t::replace);
  }
  // All members of an object that is open.
  void Members(const Json& object) {
    for (const auto& [name, value] : object.items()) {
      Name(name.c_str());
      Value(value);
    }
  }
  // An array with one element for each of `items`.
  void Array(const char* name, const auto& items, auto&& element) {
    Name(name);
    Open('[');
    for (const auto& item : items) Value(element(item));
    Close(']');
  }

 private:
  void Separate() {
    if (isNamed_) {
      isNamed_ = false;
      return;
    }
    if (!isFirst_) out_ << ',';
    if (depth_ > 0) NewLine();
    isFirst_ = false;
  }
  void NewLine() { out_ << '\n' << std::string(depth_, ' '); }

  std::ostream& out_;
  std::size_t depth_ = 0;
  bool isFirst_ = true;  // nothing is inside the innermost brackets
  bool isNamed_ = false;  // the name of a member is before this value
};

void AddDates(Json& object, std::uint64_t created, std::uint64_t modified) {
  if (const std::string date = DateText(created); !date.empty()) object["created"] = date;
  if (const std::string date = DateText(modified); !date.empty()) object["modified"] = date;
}

Json FileJson(const FileFacts& file) {
  Json json{{"kind", file.kind}, {"size", file.size}};
  if (file.type) {
    json["brands"] = BrandsOf(*file.type);
    json["minorVersion"] = file.type->minorVersion;
  }
  if (file.header) {
    json["header"] = {{"at", file.header->at},
                      {"size", file.header->size},
                      {"isCompressed", file.header->isCompressed},
                      {"isBeforeMedia", file.header->isBeforeMedia}};
  }
  json["isFragmented"] = file.isFragmented;
  json["hasMedia"] = file.hasMedia;
  return json;
}

// The elements of a matrix as numbers.
Json MatrixJson(const toolbox::Matrix& matrix) {
  Json json = Json::array();
  for (std::size_t i = 0; i < matrix.size(); ++i) {
    json.push_back(matrix[i] / (i % 3 == 2 ? 1073741824.0 : 65536.0));
  }
  return json;
}

Json ExtentJson(const Extent& extent) {
  return {{"width", extent.width}, {"height", extent.height}};
}

Json SoundJson(const toolbox::SoundFormat& sound) {
  return {{"channels", sound.channels}, {"rate", sound.rate}, {"bits", sound.bits}};
}

Json TagJson(const TagFacts& tag) {
  Json json{{"type", tag.type}, {"name", tag.name}};
  if (!tag.language.empty()) json["language"] = tag.language;
  if (tag.media) json["media"] = tag.media;
  if (tag.text) {
    json["text"] = *tag.text;
  } else {
    json["base64"] = toolbox::Base64(tag.bytes);
  }
  return json;
}

Json UserDataJson(const toolbox::UserDataItem& item) {
  Json json{{"type", TypeText(item.type)}};
  const std::vector<TagFacts> texts = TextsOf(item);
  if (texts.empty()) {
    json["base64"] = toolbox::Base64(item.payload);
    return json;
  }
  for (const TagFacts& text : texts) {
    Json one{{"text", *text.text}};
    if (!text.language.empty()) one["language"] = text.language;
    json["texts"].push_back(std::move(one));
  }
  return json;
}

Json ReferenceJson(const ReferenceFacts& reference) {
  static constexpr const char* kKinds[] = {"self", "file", "memory"};
  Json json{{"kind", kKinds[static_cast<int>(reference.kind)]}};
  if (reference.kind != ReferenceFacts::Kind::kFile) return json;
  if (!reference.path.empty()) json["path"] = reference.path;
  json["isMissing"] = !reference.isFound;
  return json;
}

Json DescriptionJson(const toolbox::SampleDescription& description, const TrackRecord& track) {
  constexpr std::size_t kHead = 16;  // size, format, reserved bytes, data reference
  const FourCC type = track.media->Type();
  const toolbox::ByteSpan bytes = description.bytes;
  Json json{{"format", TypeText(description.Format())},
            {"codec", CodecName(bytes, type)},
            {"isEncrypted", description.IsProtected()},
            {"dataReference", description.dataReference + 1}};
  if (type == FourCC{"vide"}) {
    if (const auto picture = toolbox::ReadPictureEntry(bytes)) {
      json["width"] = picture->width;
      json["height"] = picture->height;
    }
  } else if (type == FourCC{"soun"}) {
    json["sound"] = SoundJson(SoundOf(bytes, track.media->header.scale));
  }
  const toolbox::ByteSpan configuration = bytes.subspan(std::min(kHead, bytes.size()));
  std::string hexadecimal;
  boost::algorithm::hex_lower(configuration.begin(), configuration.end(),
                              std::back_inserter(hexadecimal));
  json["configuration"] = std::move(hexadecimal);
  return json;
}

Json ChapterJson(const chapter::Chapter& chapter) {
  return {{"start", Seconds(chapter.start, chapter.scale)},
          {"duration", Seconds(chapter.duration, chapter.scale)},
          {"title", chapter.title}};
}

Json TrackJson(const TrackFacts& facts, std::size_t number) {
  const TrackRecord& track = *facts.track;
  Json json{{"number", number},
            {"id", track.header.id},
            {"name", facts.name},
            {"isEnabled", track.IsEnabled()},
            {"duration", Seconds(track.edits.Duration().units, track.movie->header.scale)}};
  if (track.movie->headerAt) AddDates(json, track.header.created, track.header.modified);
  json.update({{"layer", track.header.layer},
               {"alternateGroup", track.header.alternateGroup},
               {"volume", track.header.volume / 256.0},
               {"matrix", MatrixJson(track.header.matrix)}});
  if (!track.media) return json;
  json.update(
      {{"mediaType", TypeText(track.media->Type())},
       {"mediaTimeScale", track.media->header.scale},
       {"mediaDuration", Seconds(track.media->samples.Duration().units, track.media->header.scale)},
       {"language", facts.language},
       {"codecs", facts.codecs},
       {"samples", facts.samples},
       {"syncSamples", facts.syncSamples},
       {"bytes", facts.bytes}});
  if (facts.coded) json["codedSize"] = ExtentJson(*facts.coded);
  if (facts.shown) json["shownSize"] = ExtentJson(*facts.shown);
  if (facts.sound) json["sound"] = SoundJson(*facts.sound);
  if (const auto& rates = facts.frameRates) {
    json["frameRate"] = {{"isConstant", rates->IsConstant()},
                         {"average", rates->average},
                         {"lowest", rates->lowest},
                         {"highest", rates->highest}};
  }
  return json;
}

void PrintUserData(Printer& out, const char* name, const toolbox::UserDataRecord& data) {
  out.Name(name);
  out.Open('[');
  for (const toolbox::UserDataItem& item : data.items) {
    // The tags in a 'meta' are members of "tags".
    if (item.type != kMeta) out.Value(UserDataJson(item));
  }
  out.Close(']');
}

using TrackNumbers = std::map<const TrackRecord*, std::size_t>;

void PrintTrack(Printer& out, const TrackFacts& facts, const TrackNumbers& numbers) {
  const TrackRecord& track = *facts.track;
  const std::int32_t scale = track.movie->header.scale;
  out.Open('{');
  out.Members(TrackJson(facts, numbers.at(&track)));
  out.Array("edits", track.edits.Edits(), [&](const toolbox::Edit& edit) {
    Json json{{"start", Seconds(edit.start.units, scale)},
              {"duration", Seconds(edit.duration.units, scale)}};
    json["mediaStart"] =
        edit.IsEmpty() ? Json() : Json(Seconds(edit.mediaTime.units, track.media->header.scale));
    json["rate"] = edit.rate;
    return json;
  });
  out.Array("trackReferences", track.references, [&](const toolbox::TrackReferences& references) {
    Json json{{"type", TypeText(references.type)}, {"tracks", Json::array()}};
    for (const TrackRecord* target : references.targets) {
      json["tracks"].push_back(target == nullptr ? Json() : Json(numbers.at(target)));
    }
    return json;
  });
  if (track.media) {
    out.Array("dataReferences", facts.references, ReferenceJson);
    out.Array("sampleDescriptions", track.media->descriptions,
              [&](const auto& description) { return DescriptionJson(description, track); });
  }
  out.Array("tags", TagsIn(track.userData, track.siblings), TagJson);
  PrintUserData(out, "userData", track.userData);
  if (track.media) PrintUserData(out, "mediaUserData", track.media->userData);
  out.Close('}');
}

void PrintMovie(Printer& out, const OpenedMovie& opened, const Facts& facts) {
  const toolbox::MovieHeader& header = opened.movie->header;
  Json json{{"file", opened.name}, {"path", opened.path.native()}};
  json.update(FileJson(facts.file));
  json["timeScale"] = header.scale;
  json["duration"] = Seconds(opened.movie->Duration().units, header.scale);
  // Raw AAC has no dates; the movie made of it has those of now.
  if (facts.file.header) AddDates(json, header.created, header.modified);
  json.update({{"rate", header.rate / 65536.0},
               {"volume", header.volume / 256.0},
               {"matrix", MatrixJson(header.matrix)}});
  TrackNumbers numbers;
  for (const TrackFacts& track : facts.tracks) numbers.emplace(track.track, numbers.size() + 1);
  out.Open('{');
  out.Members(json);
  out.Name("tracks");
  out.Open('[');
  for (const TrackFacts& track : facts.tracks) PrintTrack(out, track, numbers);
  out.Close(']');
  if (facts.chapters) out.Array("chapters", *facts.chapters, ChapterJson);
  out.Array("tags", facts.tags, TagJson);
  PrintUserData(out, "userData", opened.movie->userData);
  out.Close('}');
}

Json ErrorJson(const std::string& file, const toolbox::Failure& failure) {
  Json error{{"code", failure.code}, {"file", failure.file}};
  if (!failure.path.empty()) error["atom"] = failure.path;
  error["reason"] = ReasonOf(failure);
  return {{"file", file}, {"error", std::move(error)}};
}

}  // namespace

int PrintJson(const Options& options) {
  int status = 0;
  Printer out(std::cout);
  out.Open('[');
  for (const Subject& subject : options.movies) {
    try {
      OpenedMovie opened = OpenMovie(subject.file);
      const Facts facts = GatherFacts(opened);
      PrintMovie(out, opened, facts);
    } catch (...) {
      const toolbox::Failure failure = CaughtFailure(subject.file);
      out.Value(ErrorJson(subject.file, failure));
      std::cout.flush();
      std::cerr << "clipinfo: " << LineFor(failure) << '\n';
      status = 1;
    }
  }
  out.Close(']');
  std::cout << '\n';
  return status;
}

}  // namespace clipinfo
