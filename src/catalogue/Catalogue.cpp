#include "catalogue/Catalogue.h"

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
constexpr CatalogueRow Row(std::string_view progID, std::string_view name) {
  return {{progID, &Driver::Data,
           [](const Platform& platform) -> std::unique_ptr<PTZDevice> {
             return std::make_unique<Driver>(platform);
           }},
          name};
}
/// One without a driver in this build.
constexpr CatalogueRow Row(std::string_view progID, std::string_view name) {
  return {{progID, nullptr, nullptr}, name};
}

// By name, then the serial line, the separate library's driver and the product's own remote system.
// clang-format off
constexpr CatalogueRow Rows[] = {
    Row("QVPTZ.ALinking", "A-Linking cameras"),
    Row("QVPTZ.ACTi", "ACTi cameras"),
    Row<Axis>("QVPTZ.Axis", "Axis cameras"),
    Row<Bosch>("QVPTZ.Bosch", "Bosch cameras"),
    Row<Elmo>("QVPTZ.Elmo", "Elmo 200 series cameras"),
    Row<Elmo4>("QVPTZ.Elmo4", "Elmo 400 series cameras"),
    Row<Elmo402>("QVPTZ.Elmo402", "Elmo PTC-402C cameras"),
    Row("QVPTZ.Etrovision", "Etrovision cameras"),
    Row<Foscam>("QVPTZ.Foscam", "Foscam cameras"),
    Row<FoscamHD>("QVPTZ.FoscamHD", "Foscam HD cameras"),
    Row("QVPTZ.Genie", "Genie IP cameras"),
    Row<Grandeye>("QVPTZ.Grandeye", "Grandeye cameras"),
    Row<MeritLilin>("QVPTZ.MeritLilin", "Merit Lilin cameras"),
    Row<Panasonic>("QVPTZ.Panasonic", "Panasonic cameras"),
    Row<PanasoniciPro>("QVPTZ.PanasoniciPro", "Panasonic iPro cameras"),
    Row<Panogenics>("QVPTZ.Panogenics", "Panogenics cameras"),
    Row<Sanyo>("QVPTZ.Sanyo", "Sanyo cameras"),
    Row<Secubest>("QVPTZ.Secubest", "Secubest cameras"),
    Row<Sony>("QVPTZ.Sony", "Sony cameras"),
    Row<Toshiba>("QVPTZ.Toshiba", "Toshiba IK-WB01 and WB11 cameras"),
    Row<Toshiba2>("QVPTZ.Toshiba2", "Toshiba IK-WB15 and WB21 cameras"),
    Row<Vivotek>("QVPTZ.Vivotek", "Vivotek & D-Link cameras"),
    Row<Pelco>("QVPTZ.Pelco", "Pelco RS485 controller"),
    Row(SimpleDriver, "Quorvane simple PTZ driver"),
    Row<Quorvane>("QVPTZ.Quorvane", "Quorvane system"),
};
// clang-format on

}  // namespace

std::span<const CatalogueRow> Catalogue() { return Rows; }

}  // namespace ptzd
