#include "toolbox/atoms/base64.h"

#include <boost/archive/iterators/base64_from_binary.hpp>
#include <boost/archive/iterators/transform_width.hpp>

namespace toolbox {

std::string Base64(Bytes bytes) {
  namespace iterators = boost::archive::iterators;
  using Digits =
      iterators::base64_from_binary<iterators::transform_width<Bytes::const_iterator, 6, 8>>;
  // The iterators read whole groups of three bytes, so zeros are added. Digits that have only bits
  // of these zeros become '='.
  const std::size_t padding = (3 - bytes.size() % 3) % 3;
  bytes.resize(bytes.size() + padding);
  std::string text(Digits(bytes.cbegin()), Digits(bytes.cend()));
  text.replace(text.size() - padding, padding, padding, '=');
  return text;
}

}  // namespace toolbox
