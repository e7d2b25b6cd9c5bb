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
CatalogueRow Row(std::string_view name) {
  return {{Driver::Data.Class, &Driver::Data,
           [](const Platform& platform) -> std::unique_ptr<PTZDevice> {
             return std::make_unique<Driver>(platform);
           }},
          name};
}
/// One without a driver in this build.
CatalogueRow Row(std::string_view progID, std::string_view name) {
  return {{progID, nullptr, nullptr}, name};
}

}  // namespace

std::span<const CatalogueRow> Catalogue() {
  // By name, then the serial line, the separate library's driver and the product's own remote system.
  // clang-format off
  static const CatalogueRow rows[] = {
      Row("QVPTZ.ALinking", "A-Linking cameras"),
      Row("QVPTZ.ACTi", "ACTi cameras"),
      Row<Axis>("Axis cameras"),
      Row<Bosch>("Bosch cameras"),
      Row<Elmo>("Elmo 200 series cameras"),
      Row<Elmo4>("Elmo 400 series cameras"),
      Row<Elmo402>("Elmo PTC-402C cameras"),
      Row("QVPTZ.Etrovision", "Etrovision cameras"),
      Row<Foscam>("Foscam cameras"),
      Row<FoscamHD>("Foscam HD cameras"),
      Row("QVPTZ.Genie", "Genie IP cameras"),
      Row<Grandeye>("Grandeye cameras"),
      Row<MeritLilin>("Merit Lilin cameras"),
      Row<Panasonic>("Panasonic cameras"),
      Row<PanasoniciPro>("Panasonic iPro cameras"),
      Row<Panogenics>("Panogenics cameras"),
      Row<Sanyo>("Sanyo cameras"),
      Row<Secubest>("Secubest cameras"),
      Row<Sony>("Sony cameras"),
      Row<Toshiba>("Toshiba IK-WB01 and WB11 cameras"),
      Row<Toshiba2>("Toshiba IK-WB15 and WB21 cameras"),
      Row<Vivotek>("Vivotek & D-Link cameras"),
      Row<Pelco>("Pelco RS485 controller"),
      Row(SimpleDriver, "Quorvane simple PTZ driver"),
      Row<Quorvane>("Quorvane system"),
  };
  // clang-format on
  return rows;
}

}  // namespace ptzd
