#include "Camera.h"

#include <utility>

#include <ptzd/Error.h>
#include <ptzd/PTZDevice2.h>
#include "Words.h"

namespace ptzctl {

Camera::Camera(const ptzd::DriverClass& driver, ptzd::PropertyBag options, LogWatch& log)
    : Driver_(driver), Options_(std::move(options)), Log_(log), Device_(driver.Create({})) {}

Outcome Camera::Connect(bool device2) {
  Outcome outcome;
  outcome.Operation = "connect";
  auto* extended = device2 ? As<ptzd::PTZDevice2>() : nullptr;
  if (device2 && extended == nullptr) {
    outcome.Result = Result::Refused;
    outcome.Text = "the driver " + DriverName() + " has no interface PTZDevice2";
    return outcome;
  }
  Log_.Take();
  try {
    const auto options = Options_.Contents();
    outcome.Answer = extended != nullptr ? extended->Connect(options) : Device_->Connect(options);
    outcome.Text = "Connected to " + DriverName() + (Address().empty() ? "" : " at " + Address());
    if (!*outcome.Answer) {
      outcome.Result = Result::NoConnection;
      outcome.Text = "the driver answered False";
    }
  } catch (const ptzd::Error& error) {
    outcome.Result = Result::NoConnection;
    outcome.ErrorNumber = error.Number();
    outcome.ErrorText = error.Description();
    outcome.Text = std::to_string(error.Number()) + " " + error.Description();
  }
  outcome.Requests = Log_.Take();
  const bool lineFailed =
      !outcome.ErrorNumber && !outcome.Requests.empty() && outcome.Requests.back().Path.empty();
  if (outcome.Result == Result::NoConnection && lineFailed)
    outcome.Text += ": " + outcome.Requests.back().Failure;
  return outcome;
}

std::string Camera::DriverName() const {
  return std::string(Driver_.ProgID.substr(Driver_.ProgID.find('.') + 1));
}

std::string Camera::Address() const {
  auto address = Options_.Text("Address");
  return address.substr(address.rfind('@') + 1);
}

}  // namespace ptzctl
