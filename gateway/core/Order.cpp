#include "gateway/core/Order.h"

#include "common/Numbers.h"
#include "gateway/core/Overloaded.h"

namespace ptzgate {

namespace {

std::string ZoomText(const std::optional<float>& zoom) { return zoom ? ", zoom " + ptzd::Text(*zoom) : ""; }

}  // namespace

std::string Describe(const Order& order) {
  using ptzd::Text;
  return std::visit(Overloaded{
                        [](const Connect&) -> std::string { return "connect"; },
                        [](const Disconnect&) -> std::string { return "disconnect"; },
                        [](const Stop&) -> std::string { return "stop"; },
                        [](const MoveTo& to) {
                          if (!to.Pan && !to.Tilt && to.Zoom) return "zoom to " + Text(*to.Zoom);
                          const auto told = [](const auto& axis) { return axis ? Text(*axis) : "-"; };
                          return "move to " + told(to.Pan) + ", " + told(to.Tilt) + ZoomText(to.Zoom);
                        },
                        [](const MoveBy& by) { return "move by " + Text(by.Pan) + ", " + Text(by.Tilt); },
                        [](const ZoomBy& by) {
                          return (by.Direction == ptzd::ZoomIn ? "zoom in by " : "zoom out by ") +
                                 Text(by.Amount);
                        },
                        [](const SetIris& iris) -> std::string {
                          return iris.Level == ptzd::IrisAuto   ? "iris auto"
                                 : iris.Level == ptzd::IrisOpen ? "open the iris"
                                                                : "close the iris";
                        },
                        [](const SetFocus& focus) -> std::string {
                          return focus.Level == ptzd::FocusAuto   ? "focus auto"
                                 : focus.Level == ptzd::FocusNear ? "focus near"
                                                                  : "focus far";
                        },
                        [](const GoToPreset& preset) { return "go to preset " + preset.Preset; },
                        [](const SavePreset& preset) {
                          return "save preset" + (preset.Preset.empty() ? "" : " " + preset.Preset) +
                                 (preset.Name.empty() ? "" : " as \"" + preset.Name + "\"");
                        },
                        [](const ForgetPreset& preset) { return "forget preset " + preset.Preset; },
                        [](const GoHome&) -> std::string { return "go home"; },
                        [](const ReadPosition&) -> std::string { return "read the position"; },
                        [](const StartTour& tour) { return "start tour " + tour.Name; },
                        [](const EndTour&) -> std::string { return "end the tour"; },
                    },
                    order);
}

std::string Describe(const ptzd::DriveSpeeds& speeds) {
  std::string text = "drive";
  if (speeds.PanTilt)
    text += " at " + ptzd::Text(speeds.PanTilt->Pan) + ", " + ptzd::Text(speeds.PanTilt->Tilt);
  return text + ZoomText(speeds.Zoom);
}

Role RoleFor(const Order& order) {
  if (std::holds_alternative<ReadPosition>(order)) return Role::Viewer;
  const bool isForFew = std::holds_alternative<Connect>(order) || std::holds_alternative<Disconnect>(order) ||
                        std::holds_alternative<SavePreset>(order) ||
                        std::holds_alternative<ForgetPreset>(order);
  return isForFew ? Role::Administrator : Role::Operator;
}

bool NeedsControl(const Order& order) {
  return !std::holds_alternative<Stop>(order) && !std::holds_alternative<ReadPosition>(order) &&
         !std::holds_alternative<Connect>(order);
}

bool Moves(const Order& order) {
  return NeedsControl(order) && !std::holds_alternative<Disconnect>(order) &&
         !std::holds_alternative<SavePreset>(order) && !std::holds_alternative<ForgetPreset>(order) &&
         !std::holds_alternative<EndTour>(order);
}

}  // namespace ptzgate
