#include <ptzd/DriverFactory.h>

#include <algorithm>
#include <string>

#include <ptzd/Error.h>
#include <ptzd/PTZDrivers.h>
#include "drivers/Axis.h"
#include "drivers/Bosch.h"
#include "drivers/Elmo.h"
#include "drivers/Elmo4.h"
#include "drivers/Elmo402.h"
#include "drivers/Foscam.h"
#include "drivers/FoscamHD.h"
#include "drivers/Grandeye.h"
#include "drivers/MeritLilin.h"
#include "drivers/Panasonic.h"
#include "drivers/PanasoniciPro.h"
#include "drivers/Panogenics.h"
#include "drivers/Pelco.h"
#include "drivers/Quorvane.h"
#include "drivers/Sanyo.h"
#include "drivers/Secubest.h"
#include "drivers/Sony.h"
#include "drivers/Toshiba.h"
#include "drivers/Toshiba2.h"
#include "drivers/Vivotek.h"

namespace ptzd {

namespace {

template <typename Driver>
constexpr DriverClass Row(std::string_view progID) {
  return {progID, &Driver::Data, [](const Platform& platform) -> std::unique_ptr<PTZDevice> {
            return std::make_unique<Driver>(platform);
          }};
}

// clang-format off
constexpr DriverClass Classes[] = {
    Row<Axis>("QVPTZ.Axis"),
    Row<Bosch>("QVPTZ.Bosch"),
    Row<Elmo>("QVPTZ.Elmo"),
    Row<Elmo4>("QVPTZ.Elmo4"),
    Row<Elmo402>("QVPTZ.Elmo402"),
    Row<Foscam>("QVPTZ.Foscam"),
    Row<FoscamHD>("QVPTZ.FoscamHD"),
    Row<Grandeye>("QVPTZ.Grandeye"),
    Row<MeritLilin>("QVPTZ.MeritLilin"),
    Row<Panogenics>("QVPTZ.Panogenics"),
    Row<Panasonic>("QVPTZ.Panasonic"),
    Row<PanasoniciPro>("QVPTZ.PanasoniciPro"),
    Row<Pelco>("QVPTZ.Pelco"),
    Row<Quorvane>("QVPTZ.Quorvane"),
    Row<Sanyo>("QVPTZ.Sanyo"),
    Row<Secubest>("QVPTZ.Secubest"),
    Row<Sony>("QVPTZ.Sony"),
    Row<Toshiba>("QVPTZ.Toshiba"),
    Row<Toshiba2>("QVPTZ.Toshiba2"),
    Row<Vivotek>("QVPTZ.Vivotek"),
};
// clang-format on

bool SameProgID(std::string_view a, std::string_view b) {
  const auto lower = [](char c) { return c >= 'A' && c <= 'Z' ? static_cast<char>(c - 'A' + 'a') : c; };
  return std::ranges::equal(a, b, {}, lower, lower);
}

}  // namespace

std::span<const DriverClass> DriverClasses() { return Classes; }

const DriverClass* FindDriverClass(std::string_view progID) {
  const auto found =
      std::ranges::find_if(Classes, [&](const auto& row) { return SameProgID(row.ProgID, progID); });
  return found == std::end(Classes) ? nullptr : &*found;
}

std::unique_ptr<PTZDevice> CreateDriver(std::string_view progID, const Platform& platform) {
  if (const auto* driver = FindDriverClass(progID)) return driver->Create(platform);
  const PTZDrivers catalogue;
  const bool listed = std::ranges::any_of(
      catalogue.NewEnum(), [&](const auto& entry) { return SameProgID(entry->Class(), progID); });
  throw Error(ErrorCannotCreateObject, RunTimeErrorText(ErrorCannotCreateObject) + ": " +
                                           std::string(progID) +
                                           (listed ? " is listed, but its driver is not in this build"
                                                   : " is not a driver this library knows"));
}

}  // namespace ptzd
