#pragma once

#include "com/Automation.h"

#include <utility>

namespace ptzd::com {

/// A counted reference to a COM object.
template <class Interface>
class ComPtr {
 public:
  ComPtr() = default;
  ComPtr(Interface* object) : Object_(object) {
    if (Object_) Object_->AddRef();
  }
  ComPtr(const ComPtr& other) : ComPtr(other.Object_) {}
  ComPtr(ComPtr&& other) noexcept : Object_(std::exchange(other.Object_, nullptr)) {}
  ComPtr& operator=(ComPtr other) noexcept {
    std::swap(Object_, other.Object_);
    return *this;
  }
  ~ComPtr() {
    if (Object_) Object_->Release();
  }

  Interface* operator->() const { return Object_; }
  Interface* Get() const { return Object_; }
  explicit operator bool() const { return Object_; }

  /// For calls that answer a reference; what was held is let go.
  Interface** Out() {
    *this = {};
    return &Object_;
  }
  void** OutVoid() { return reinterpret_cast<void**>(Out()); }
  /// Hands the reference over.
  Interface* Detach() { return std::exchange(Object_, nullptr); }

 private:
  Interface* Object_ = nullptr;
};

}  // namespace ptzd::com
