#include "clipinfo/formats.h"

#include <algorithm>
#include <iterator>
#include <string_view>

#include "toolbox/atoms/decoder_config.h"
#include "toolbox/atoms/sample_entries.h"
#include "toolbox/atoms/sound_format.h"
#include "toolbox/text/language.h"

namespace clipinfo {
namespace {

using toolbox::ByteSpan;
using toolbox::ElementaryStream;
using toolbox::FourCC;

struct Name {
  FourCC type;
  const char* name = "";
};

constexpr Name kCodecs[] = {
    // Video
    {"avc1", "H.264"},
    {"avc2", "H.264"},
    {"avc3", "H.264"},
    {"avc4", "H.264"},
    {"hvc1", "HEVC"},
    {"hev1", "HEVC"},
    {"hvc2", "HEVC"},
    {"hev2", "HEVC"},
    {"dvh1", "HEVC Dolby Vision"},
    {"dvhe", "HEVC Dolby Vision"},
    {"dva1", "H.264 Dolby Vision"},
    {"dvav", "H.264 Dolby Vision"},
    {"vvc1", "VVC"},
    {"vvi1", "VVC"},
    {"av01", "AV1"},
    {"vp08", "VP8"},
    {"vp09", "VP9"},
    {"apco", "ProRes 422 Proxy"},
    {"apcs", "ProRes 422 LT"},
    {"apcn", "ProRes 422"},
    {"apch", "ProRes 422 HQ"},
    {"ap4h", "ProRes 4444"},
    {"ap4x", "ProRes 4444 XQ"},
    {"aprn", "ProRes RAW"},
    {"aprh", "ProRes RAW HQ"},
    {"icod", "Apple Intermediate"},
    {"AVdn", "DNxHD"},
    {"AVdh", "DNxHR"},
    {"CFHD", "CineForm"},
    {"Hap1", "Hap"},
    {"Hap5", "Hap Alpha"},
    {"HapY", "Hap Q"},
    {"mp2v", "MPEG-2"},
    {"m2v1", "MPEG-2"},
    {"mpg1", "MPEG-1"},
    {"m1v ", "MPEG-1"},
    {"s263", "H.263"},
    {"h263", "H.263"},
    {"H263", "H.263"},
    {"h261", "H.261"},
    {"vc-1", "VC-1"},
    {"dvc ", "DV NTSC"},
    {"dvcp", "DV PAL"},
    {"dvpp", "DVCPRO PAL"},
    {"dvpn", "DVCPRO NTSC"},
    {"dv5n", "DVCPRO50 NTSC"},
    {"dv5p", "DVCPRO50 PAL"},
    {"dvh2", "DVCPRO HD"},
    {"dvh3", "DVCPRO HD"},
    {"dvh5", "DVCPRO HD"},
    {"dvh6", "DVCPRO HD"},
    {"dvhp", "DVCPRO HD"},
    {"dvhq", "DVCPRO HD"},
    {"jpeg", "JPEG"},
    {"mjpa", "Motion JPEG A"},
    {"mjpb", "Motion JPEG B"},
    {"mjp2", "JPEG 2000"},
    {"png ", "PNG"},
    {"tiff", "TIFF"},
    {"gif ", "GIF"},
    {"8BPS", "Photoshop"},
    {"rle ", "Animation"},
    {"rpza", "Apple Video"},
    {"smc ", "Apple Graphics"},
    {"cvid", "Cinepak"},
    {"SVQ1", "Sorenson Video"},
    {"SVQ3", "Sorenson Video 3"},
    {"VP6F", "VP6"},
    {"2vuy", "uncompressed 4:2:2"},
    {"yuv2", "uncompressed 4:2:2"},
    {"v210", "uncompressed 4:2:2 10-bit"},
    {"v308", "uncompressed 4:4:4"},
    {"v408", "uncompressed 4:4:4:4"},
    {"v410", "uncompressed 4:4:4 10-bit"},
    {"r210", "uncompressed RGB 10-bit"},
    {"b64a", "uncompressed ARGB 16-bit"},
    // Sound
    {".mp3", "MP3"},
    {".mp2", "MP2"},
    {"mp3 ", "MP3"},
    {"alac", "ALAC"},
    {"Opus", "Opus"},
    {"fLaC", "FLAC"},
    {"ac-3", "AC-3"},
    {"sac3", "AC-3"},
    {"ec-3", "E-AC-3"},
    {"ac-4", "AC-4"},
    {"dtsc", "DTS"},
    {"dtsh", "DTS-HD"},
    {"dtsl", "DTS-HD"},
    {"dtse", "DTS Express"},
    {"dtsx", "DTS:X"},
    {"mlpa", "TrueHD"},
    {"mha1", "MPEG-H"},
    {"mhm1", "MPEG-H"},
    {"samr", "AMR"},
    {"sawb", "AMR-WB"},
    {"sawp", "AMR-WB+"},
    {"sevc", "EVRC"},
    {"sqcp", "QCELP"},
    {"Qclp", "QCELP"},
    {"QDM2", "QDesign Music 2"},
    {"QDMC", "QDesign Music"},
    {"MAC3", "MACE 3:1"},
    {"MAC6", "MACE 6:1"},
    {"ima4", "IMA 4:1"},
    {"agsm", "GSM"},
    {"ulaw", "PCM mu-law"},
    {"alaw", "PCM A-law"},
    // Text and others
    {"text", "text"},
    {"tx3g", "tx3g"},
    {"wvtt", "WebVTT"},
    {"stpp", "TTML"},
    {"sbtt", "text"},
    {"c608", "CEA-608"},
    {"c708", "CEA-708"},
    {"tmcd", "time code"},
    {"mebx", "timed metadata"},
    {"mett", "timed text metadata"},
    {"metx", "timed XML metadata"},
    {"gpmd", "GPMF telemetry"},
    {"camm", "camera motion"},
    {"rtp ", "RTP hints"},
    {"mp4s", "MPEG-4 systems"},
};

// The formats of uncompressed sound. 'ms' and a number of Microsoft are not among them.
constexpr FourCC kPcm[] = {"sowt", "twos", "raw ", "NONE", "in24", "in32",
                           "fl32", "fl64", "lpcm", "ipcm", "fpcm"};

// The coded streams of MPEG-4 by object type. The sound of kAudio has names of its own.
struct StreamName {
  std::uint8_t objectType;
  const char* name;
};
constexpr StreamName kStreams[] = {
    {ElementaryStream::kVisual, "MPEG-4 Visual"},
    {0x21, "H.264"},
    {0x23, "HEVC"},
    {0x60, "MPEG-2"},
    {0x61, "MPEG-2"},
    {0x62, "MPEG-2"},
    {0x63, "MPEG-2"},
    {0x64, "MPEG-2"},
    {0x65, "MPEG-2"},
    {0x66, "AAC Main"},
    {0x67, "AAC-LC"},
    {0x68, "AAC-SSR"},
    {0x69, "MPEG audio"},
    {0x6A, "MPEG-1"},
    {0x6B, "MPEG audio"},
    {0x6C, "JPEG"},
    {0x6D, "PNG"},
    {0x6E, "JPEG 2000"},
    {0xA5, "AC-3"},
    {0xA6, "E-AC-3"},
    {0xA9, "DTS"},
    {0xAD, "Opus"},
    {0xDD, "Vorbis"},
    {0xE1, "QCELP"},
};
// The object types of MPEG-4 sound, ISO/IEC 14496-3 1.5.1.1.
constexpr StreamName kSounds[] = {
    {1, "AAC Main"}, {2, "AAC-LC"},  {3, "AAC-SSR"},    {4, "AAC-LTP"},  {5, "HE-AAC"},
    {22, "ER BSAC"}, {23, "AAC-LD"}, {29, "HE-AAC v2"}, {32, "MP1"},     {33, "MP2"},
    {34, "MP3"},     {36, "ALS"},    {39, "AAC-ELD"},   {42, "xHE-AAC"},
};

constexpr Name kTags[] = {
    {"\251nam", "title"},      {"\251ART", "artist"},   {"aART", "album artist"},
    {"\251alb", "album"},      {"\251day", "date"},     {"\251cmt", "comment"},
    {"\251com", "composer"},   {"\251wrt", "composer"}, {"\251gen", "genre"},
    {"gnre", "genre"},         {"\251grp", "grouping"}, {"\251lyr", "lyrics"},
    {"\251cpy", "copyright"},  {"cprt", "copyright"},   {"\251des", "description"},
    {"desc", "description"},   {"ldes", "description"}, {"\251inf", "information"},
    {"\251too", "encoder"},    {"\251enc", "encoder"},  {"\251swr", "software"},
    {"\251mak", "make"},       {"\251mod", "model"},    {"\251xyz", "place"},
    {"\251aut", "author"},     {"\251dir", "director"}, {"\251prd", "producer"},
    {"\251prf", "performers"}, {"\251key", "keywords"}, {"\251trk", "track number"},
    {"trkn", "track number"},  {"disk", "disc number"}, {"tmpo", "beats a minute"},
    {"cpil", "compilation"},   {"pgap", "gapless"},     {"covr", "cover"},
    {"stik", "media kind"},    {"tvsh", "show"},        {"tven", "episode id"},
    {"tvsn", "season"},        {"tves", "episode"},     {"purd", "purchased"},
    {"titl", "title"},         {"dscp", "description"}, {"perf", "performer"},
    {"auth", "author"},        {"albm", "album"},       {"\251req", "requirements"},
    {"\251fmt", "format"},     {"\251src", "source"},   {"\251wrn", "warning"},
    {"\251pub", "publisher"},  {"\251nrt", "narrator"},
};

const char* Find(const auto& names, auto key, auto member) {
  const auto found = std::ranges::find(names, key, member);
  return found == std::end(names) ? nullptr : found->name;
}

// Such as "PCM s16le", in the words of ffmpeg.
std::string PcmName(ByteSpan entry) {
  const toolbox::SoundFormat format = toolbox::ReadSoundFormat(entry);
  std::string name = format.isFloat ? "PCM f" : format.isSigned ? "PCM s" : "PCM u";
  name += std::to_string(format.bits);
  if (format.bits > 8) name += format.isLittleEndian ? "le" : "be";
  return name;
}

// The name of the coded stream in the entry's 'esds'; null if it has none or an unknown one.
const char* StreamCodec(ByteSpan entry) {
  const auto stream = toolbox::StreamIn(entry);
  if (!stream) return nullptr;
  if (stream->objectType != ElementaryStream::kAudio) {
    return Find(kStreams, stream->objectType, &StreamName::objectType);
  }
  const auto config = toolbox::ReadAudioConfig(stream->Specific());
  return config ? Find(kSounds, config->objectType, &StreamName::objectType) : "AAC";
}

// The codes of ISO 639-2 of the Macintosh languages from `first` on, three letters each; "---" for
// a number without a code.
struct Languages {
  std::uint16_t first;
  std::string_view codes;
};
constexpr Languages kLanguages[] = {
    {0,
     "engfradeuitanldswespadanpornorhebjpnarafinellislmltturhrvzhourdhinthakorlitpolhunestlavsmefao"
     "fasruszhonldglesqironcesslkslvyidsrpmkdbulukrbeluzbkazazeazehyekatronkirtgktukmonmonpuskurkas"
     "sndbodnepsanmarbenasmgujpanorimalkantamtelsinmyakhmlaovieindtglmsamsaamhtirormsomswakinrunnya"
     "mlgepo"},
    {128, "cymeuscatlatquegrnaymtatuigdzojavsunglgafrbreikuglaglvgletongrckalaze"},
};

}  // namespace

std::string CodecName(ByteSpan entry, FourCC mediaType) {
  const FourCC format = toolbox::OriginalFormat(entry, mediaType);
  if (std::ranges::find(kPcm, format) != std::end(kPcm) && mediaType == FourCC{"soun"}) {
    return PcmName(entry);
  }
  if (format == FourCC{"raw "}) return "uncompressed RGB";
  if (const char* name = StreamCodec(entry)) return name;
  if (const char* name = Find(kCodecs, format, &Name::type)) return name;
  // Cameras have a format for each size and rate of pictures.
  static constexpr std::string_view kMpeg2[] = {"hdv", "xdv", "xd5", "mx3", "mx4", "mx5"};
  const std::string text = format.Text();
  if (std::ranges::any_of(kMpeg2, [&](auto start) { return text.starts_with(start); })) {
    return "MPEG-2";
  }
  // QuickTime: a compressor of Windows has 'ms' and a number of 16 bits.
  if (format == FourCC{"ms\0\x55"}) return "MP3";
  if (format == FourCC{"ms\0\x02"}) return "ADPCM";
  if (format == FourCC{"ms\0\x11"}) return "IMA ADPCM";
  return format == FourCC() ? "unknown" : text;
}

std::string LanguageCode(std::uint16_t language) {
  if (language >= toolbox::kFirstIsoLanguage && language != toolbox::kUnspecifiedLanguage) {
    std::string code;
    for (const int shift : {10, 5, 0}) {
      const int letter = language >> shift & 31;
      if (letter < 1 || letter > 26) return "und";
      code += static_cast<char>('a' + letter - 1);
    }
    return code;
  }
  for (const auto& [first, codes] : kLanguages) {
    const std::size_t at = 3 * (std::size_t{language} - first);
    if (language >= first && at < codes.size()) return std::string(codes.substr(at, 3));
  }
  return "und";
}

std::string KindOfFile(const std::optional<toolbox::FileType>& type) {
  if (!type || type->majorBrand == FourCC{"qt  "}) return "QuickTime";
  const std::string brand = type->majorBrand.Text();
  if (brand.starts_with("3g2")) return "3GPP2";
  if (brand.starts_with("3g")) return "3GPP";
  if (brand == "M4A " || brand == "M4B ") return "MPEG-4 audio";
  return "MPEG-4";
}

const char* TagName(FourCC type) { return Find(kTags, type, &Name::type); }

}  // namespace clipinfo
