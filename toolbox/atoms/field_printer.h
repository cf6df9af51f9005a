// Prints the fields of an atom. fields.h explains the functions.
#pragma once

#include <algorithm>
#include <array>
#include <cstdint>
#include <ostream>
#include <string>
#include <string_view>
#include <vector>

#include "toolbox/atoms/fields.h"

namespace toolbox {

// Prints fields on one line as " name=value". Of a table it prints the count and the first rows.
// Dates differ from run to run, so they are printed only if `showsDates`. `out` must outlive it.
class FieldPrinter {
 public:
  explicit FieldPrinter(std::ostream& out, bool showsDates = false)
      : out_(out), showsDates_(showsDates) {}

  template <Integer T>
  void operator()(std::string_view name, T value) {
    out_ << ' ' << name << '=' << +value;  // + prints bytes as numbers
  }
  void operator()(std::string_view name, std::uint32_t value) {
    if (name == "version") return PrintVersion(value >> 24, value & 0xFFFFFF);
    out_ << ' ' << name << '=' << value;
  }
  void operator()(std::string_view name, FourCC value) {
    out_ << ' ' << name << "='" << value.Text() << '\'';
  }
  // Reserved bytes are not printed.
  template <std::size_t N>
  void operator()(std::string_view, const std::array<std::uint8_t, N>&) {}

  void Version(std::uint32_t flags, bool needsWide) { PrintVersion(needsWide ? 1 : 0, flags); }
  template <Integer T>
  void Wide(std::string_view name, T value) {
    if (showsDates_ || (name != "created" && name != "modified")) (*this)(name, value);
  }
  void Narrow(std::string_view name, std::int64_t value) { (*this)(name, value); }

  template <class Row>
  void Table(std::string_view name, const Rows<Row>& rows) {
    out_ << ' ' << name << '=' << rows.Count();
    std::uint32_t shown = 0;
    rows.ForEach([&](const Row& row) {
      if (shown < kRowsShown) PrintEntry(row);
      if (shown++ == kRowsShown) out_ << " ...";
    });
  }
  template <class Entry>
  void List(std::string_view name, const std::vector<Entry>& entries) {
    out_ << ' ' << name << '=' << entries.size();
    for (const Entry& entry : entries) PrintEntry(entry);
  }
  void Atoms(std::string_view name, const std::vector<Bytes>& atoms) {
    out_ << ' ' << name << '=' << atoms.size();
    for (const Bytes& atom : atoms) {
      out_ << " {'" << FourCC(FromBigEndian<std::uint32_t>(&atom[4])).Text() << "' " << atom.size()
           << " bytes}";
    }
  }
  // Text is printed as text, without the length before it or the zeros after it.
  void Rest(std::string_view name, ByteSpan bytes) {
    ByteSpan text = bytes;
    if (!text.empty() && text[0] == text.size() - 1) text = text.subspan(1);
    while (!text.empty() && text.back() == 0) text = text.first(text.size() - 1);
    const auto isPrintable = [](std::uint8_t byte) { return byte >= 0x20 && byte < 0x7F; };
    out_ << ' ' << name << '=';
    if (text.size() <= kLongestText && std::ranges::all_of(text, isPrintable)) {
      out_ << '"' << std::string(text.begin(), text.end()) << '"';
    } else {
      out_ << bytes.size() << " bytes";
    }
  }

 private:
  static constexpr std::uint32_t kRowsShown = 4;
  static constexpr std::size_t kLongestText = 80;

  void PrintVersion(std::uint32_t version, std::uint32_t flags) {
    if (version != 0) out_ << " version=" << version;
    if (flags != 0) out_ << " flags=" << flags;
  }
  template <class Entry>
  void PrintEntry(const Entry& entry) {
    out_ << " {";
    Entry::Fields(*this, entry);
    out_ << " }";
  }

  std::ostream& out_;
  bool showsDates_;
};

}  // namespace toolbox
