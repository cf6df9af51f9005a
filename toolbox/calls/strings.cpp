// String objects and the paths they hold.
#include <limits.h>

#include <boost/filesystem/path.hpp>
#include <memory>

#include "toolbox/calls/call.h"
#include "toolbox/calls/references.h"
#include "toolbox/files/file_reference.h"
#include "toolbox/toolbox.h"

namespace toolbox {

CFStringRef CFStringCreateWithCString(const void*, const char* text, CFStringEncoding encoding) {
  return Call("CFStringCreateWithCString", [&]() -> CFStringRef {
    if (text == nullptr || encoding != kCFStringEncodingUTF8) throw Refused{paramErr};
    return std::make_unique<StringRecord>(StringRecord{text}).release();
  });
}

void CFRelease(CFStringRef string) {
  Call("CFRelease", [&] { delete string; });
}

OSErr QTNewDataReferenceFromFullPathCFString(CFStringRef path, int style, std::uint32_t,
                                             Handle* dataRef, FourCC* dataRefType) {
  return Call("QTNewDataReferenceFromFullPathCFString", [&] {
    if (path == nullptr || style != kQTPOSIXPathStyle) throw Refused{paramErr};
    const boost::filesystem::path file(path->text);
    if (!file.is_absolute()) throw Refused{paramErr};
    if (file.size() >= PATH_MAX) throw Refused{bdNamErr};
    for (const boost::filesystem::path& name : file) {
      if (name.size() > NAME_MAX) throw Refused{bdNamErr};
    }
    *dataRef = std::make_unique<HandleRecord>(HandleRecord{AliasRecord(file, {})}).release();
    *dataRefType = FourCC{"alis"};
  });
}

}  // namespace toolbox
