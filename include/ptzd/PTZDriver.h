#pragma once

#include <string>
#include <utility>

#include <ptzd/Export.h>

namespace ptzd {

/// An entry of the catalogue.
class PTZD_API PTZDriver {
 public:
  PTZDriver(std::string name, std::string progID) : Class_(std::move(progID)), Name_(std::move(name)) {}

  /// Free for the host; the catalogue leaves it empty.
  const std::string& Key() const { return Key_; }
  void Key(std::string key) { Key_ = std::move(key); }

  /// ProgID of the driver's class.
  const std::string& Class() const { return Class_; }
  /// The name that a user is shown.
  const std::string& Name() const { return Name_; }

 private:
  std::string Key_;
  std::string Class_;
  std::string Name_;
};

}  // namespace ptzd
