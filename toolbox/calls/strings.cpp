// String objects and the paths they hold.
#include <climits>

#include <boost/filesystem/path.hpp>
#include <boost/property_tree/ini_parser.hpp>
#include <boost/property_tree/ptree.hpp>
#include <memory>

#include "toolbox/calls/call.h"
#include "toolbox/calls/references.h"
#include "toolbox/files/file_reference.h"
#include "toolbox/files/user_folders.h"
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

bool CFPreferencesGetAppBooleanValue(CFStringRef key, CFStringRef application, bool* valid) {
  *valid = false;
  return Call("CFPreferencesGetAppBooleanValue", [&] {
    if (key == nullptr || application == nullptr) throw Refused{paramErr};
    const auto folder = ConfigurationFolder();
    boost::property_tree::ptree settings;
    if (!folder) return false;
    try {
      boost::property_tree::read_ini((*folder / (application->text + ".conf")).native(), settings);
    } catch (const boost::property_tree::ini_parser_error&) {
      return false;  // no settings, or none that can be read
    }
    const auto text = settings.get<std::string>(key->text, {});
    const bool isTrue = text == "true" || text == "yes" || text == "1";
    *valid = isTrue || text == "false" || text == "no" || text == "0";
    return isTrue;
  });
}

}  // namespace toolbox
