// Bytes in memory together with what keeps them there.
#pragma once

#include <memory>
#include <utility>

#include "toolbox/bytes.h"

namespace toolbox {

class HeldBytes {
 public:
  // Keeps bytes where they are for as long as it lives.
  class Holder {
   public:
    virtual ~Holder() = default;
    // Makes the bytes independent of their file: from now on, changes to the file do not change
    // them.
    virtual void Detach() const {}
  };

  HeldBytes() = default;
  explicit HeldBytes(Bytes bytes) {
    auto holder = std::make_shared<const OwnBytes>(std::move(bytes));
    span_ = holder->bytes;
    holder_ = std::move(holder);
  }
  HeldBytes(ByteSpan span, std::shared_ptr<const Holder> holder)
      : span_(span), holder_(std::move(holder)) {}

  ByteSpan Span() const { return span_; }
  // Does what Holder::Detach does. The bytes stay at their address.
  void Detach() const {
    if (holder_) holder_->Detach();
  }

 private:
  struct OwnBytes final : Holder {
    explicit OwnBytes(Bytes owned) : bytes(std::move(owned)) {}
    Bytes bytes;
  };

  ByteSpan span_;
  std::shared_ptr<const Holder> holder_;
};

}  // namespace toolbox
