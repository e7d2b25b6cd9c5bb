#pragma once

#include <sys/types.h>

#include <cstddef>
#include <cstdint>
#include <memory>
#include <string>
#include <vector>

#include "SimulatedSite.h"

/// A program that runs beside this one, and ends with it. Raises `std::runtime_error` where it cannot begin.
class ChildProcess {
 public:
  /// `output`: where what it says goes, a file.
  ChildProcess(const std::vector<std::string>& command, const std::string& output);
  /// Asks it to end, and waits for that.
  ~ChildProcess();
  ChildProcess(const ChildProcess&) = delete;
  ChildProcess& operator=(const ChildProcess&) = delete;

  std::string Number() const { return std::to_string(Child_); }
  bool Runs() const;
  /// Its exit code; asks it to end first.
  int End();

 private:
  pid_t Child_ = -1;
  int Code_ = -1;
};

/// A folder that goes with all that is in it.
class OwnFolder {
 public:
  OwnFolder();
  ~OwnFolder();
  OwnFolder(const OwnFolder&) = delete;
  OwnFolder& operator=(const OwnFolder&) = delete;
  /// Where a file in it is.
  std::string operator/(const std::string& name) const { return Path_ + "/" + name; }

 private:
  std::string Path_;
};

/// ptzgate over all cameras of a site, as its user runs it: with a file of cameras and a gate.toml.
class GateProcess {
 public:
  /// With a broker on a port of this machine; 0: none. Blocks until it listens.
  GateProcess(const std::string& program, const OwnFolder& folder, const SimulatedSite& site,
              std::uint16_t brokerPort);

  /// Of the camera with that index.
  static std::string NameOf(std::size_t camera);
  static std::size_t IndexOf(const std::string& name);
  std::uint16_t Port() const { return Port_; }
  std::string Number() const { return Process_->Number(); }
  bool Runs() const { return Process_->Runs(); }
  int End() { return Process_->End(); }

 private:
  std::unique_ptr<ChildProcess> Process_;
  std::uint16_t Port_ = 0;
};

/// Debian's broker, on a port of this machine; port 0 where it is not installed.
class BrokerProcess {
 public:
  explicit BrokerProcess(const OwnFolder& folder);
  std::uint16_t Port() const { return Port_; }

 private:
  std::unique_ptr<ChildProcess> Process_;
  std::uint16_t Port_ = 0;
};
