#include <ptzd/CameraControl.h>

namespace ptzd {

std::string_view Name(WishResult result) {
  switch (result) {
    case WishResult::Arrived:
      return "arrived";
    case WishResult::Sent:
      return "sent";
    case WishResult::Stopped:
      return "stopped";
    case WishResult::Replaced:
      return "replaced";
    case WishResult::Stalled:
      return "stalled";
    case WishResult::StillMoving:
      return "still moving";
    case WishResult::Refused:
      return "refused";
    case WishResult::LoginRefused:
      return "login refused";
    case WishResult::NotReached:
      return "not reached";
    case WishResult::NotSent:
      return "not sent";
    case WishResult::Unsupported:
      return "unsupported";
    case WishResult::OutOfRange:
      return "out of range";
    case WishResult::Failed:
      return "failed";
    case WishResult::Abandoned:
      return "abandoned";
  }
  return "";
}

std::string_view Name(PositionKind kind) {
  switch (kind) {
    case PositionKind::Unknown:
      return "unknown";
    case PositionKind::Read:
      return "read";
    case PositionKind::Estimated:
      return "estimated";
    case PositionKind::Target:
      return "target";
  }
  return "";
}

std::string_view Name(LinkHealth health) {
  switch (health) {
    case LinkHealth::NotConnected:
      return "not connected";
    case LinkHealth::Connecting:
      return "connecting";
    case LinkHealth::Untried:
      return "untried";
    case LinkHealth::Up:
      return "up";
    case LinkHealth::Lost:
      return "lost";
  }
  return "";
}

std::string_view Name(CameraMotion motion) {
  switch (motion) {
    case CameraMotion::Unknown:
      return "unknown";
    case CameraMotion::AtRest:
      return "at rest";
    case CameraMotion::Driven:
      return "driven";
    case CameraMotion::Moving:
      return "moving";
  }
  return "";
}

}  // namespace ptzd
