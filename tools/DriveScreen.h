#pragma once

#include <chrono>
#include <deque>
#include <string>
#include <vector>

#include <ptzd/DriverData.h>
#include <ptzd/Exchange.h>

#include "Pilot.h"

namespace ptzctl {

/// What went over the wire lately, and how long it took.
class RecentExchanges {
 public:
  struct Row {
    std::string Request, Result;
    int Times = 1;  ///< how often it was made, one right after the other
    bool Failed = false;
  };

  void Add(const ptzd::Exchange& exchange);
  /// The latest first.
  const std::deque<Row>& Rows() const { return Rows_; }
  /// Of the last one, and of all that were answered: "last 3.1 ms, average 4 ms, longest 12 ms of 40".
  std::string Latency() const;

 private:
  std::deque<Row> Rows_;
  std::chrono::nanoseconds Last_{}, Longest_{}, Sum_{};
  int Answered_ = 0;
};

/// What there is to see besides what the pilot knows.
struct DriveView {
  std::string Camera;   ///< "Axis at 192.168.0.90"
  std::string Message;  ///< for the operator; empty for none
  bool IsQuestion = false;
  std::string Keyboard, Gamepad;
  bool ShowsHelp = false;
};

/// Draws on the terminal that is open.
class DriveScreen {
 public:
  static constexpr int LeastRows = 18, LeastColumns = 64;

  DriveScreen(const Pilot& pilot, const ptzd::DriverData& data, const RecentExchanges& exchanges);

  /// Whether the window is large enough; else a message takes the screen's place.
  static bool Fits();
  void Draw(const DriveView& view) const;

 private:
  void DrawTitle(const DriveView& view) const;
  void DrawPosition(int row, int column, int width) const;
  void DrawMotion(int row, int column, int width) const;
  void DrawWish(int row, int width, const DriveView& view) const;
  void DrawExchanges(int row, int height, int width) const;
  void DrawFoot(int row, int width, const DriveView& view) const;
  void DrawHelp() const;

  const Pilot& Pilot_;
  const ptzd::DriverData& Data_;
  const RecentExchanges& Exchanges_;
};

}  // namespace ptzctl
