// Bytes taken for an alias record, and for what other data references hold.
#include <variant>

#include "tests/fuzz/seeds.h"
#include "toolbox/references/aliases.h"
#include "toolbox/references/data_references.h"

namespace {

using toolbox::FourCC;

const boost::filesystem::path kReferrer = "/dev/shm/movies/joined.mov";

}  // namespace

extern "C" int LLVMFuzzerInitialize(int*, char***) {
  fuzz::WriteSeed("same_folder", toolbox::AliasRecord("/dev/shm/movies/one.mov", kReferrer));
  fuzz::WriteSeed("elsewhere", toolbox::AliasRecord("/etc/passwd", kReferrer));
  fuzz::WriteSeed("no_referrer", toolbox::AliasRecord("/dev/shm/\xC3\xA9.mov", {}));
  for (const std::string url : {"file:///etc/passwd", "file://localhost/etc/%70asswd", "one.mov"}) {
    fuzz::WriteSeed("url_" + std::to_string(url.size()), toolbox::Bytes(url.begin(), url.end()));
  }
  return 0;
}

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
  const toolbox::ByteSpan record(data, size);
  for (const boost::filesystem::path& referrer : {kReferrer, boost::filesystem::path()}) {
    const auto found = toolbox::ResolveAlias(record, referrer);
    fuzz::Check(!found || found->is_absolute(), "an alias leads to an absolute path");
  }
  if (const auto named = toolbox::AbsoluteAliasPath(record)) {
    fuzz::Check(named->is_absolute(), "an alias names an absolute path");
  }
  for (const FourCC kind : {FourCC{"alis"}, FourCC{"url "}, FourCC{"hndl"}, FourCC{"rsrc"}}) {
    for (const bool resolve : {false, true}) {
      const toolbox::DataReference reference =
          toolbox::ReadDataReference({kind, 0, {record.begin(), record.end()}}, kReferrer, resolve);
      const auto* file = std::get_if<toolbox::OtherFile>(&reference);
      fuzz::Check(resolve || file == nullptr, "nothing is looked for unless asked");
      if (file == nullptr) continue;
      for (const bool isIso : {false, true}) {
        const auto entry = toolbox::WriteDataReference(reference, kReferrer, isIso);
        fuzz::Check(toolbox::ReadDataReference(entry, kReferrer, true) == reference,
                    "a file that was found is found again");
      }
    }
  }
  return 0;
}
