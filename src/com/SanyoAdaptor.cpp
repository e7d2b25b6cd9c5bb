#include "com/SanyoAdaptor.h"

#include <ptzd/SanyoControl.h>

namespace ptzd::com {

namespace {

class SanyoAdaptor final : public Adaptor<::_Sanyo> {
 public:
  SanyoAdaptor(Object& object, ptzd::SanyoControl& camera, const std::vector<Dispatcher::Part>& others)
      : Adaptor(object, __uuidof(::_Sanyo), others), Camera_(camera) {}

  HRESULT STDMETHODCALLTYPE SendOpeCmd(LONG Command, BSTR Parameters, VARIANT_BOOL* Result) override {
    return Answer(Result, [&] { return Camera_.SendOpeCmd(Command, Utf8(Parameters)); });
  }

 private:
  ptzd::SanyoControl& Camera_;
};

}  // namespace

std::shared_ptr<IDispatch> OwnSanyo(Object& object, ptzd::PTZDevice& core,
                                    const std::vector<Dispatcher::Part>& others) {
  return std::make_shared<SanyoAdaptor>(object, dynamic_cast<ptzd::SanyoControl&>(core), others);
}

}  // namespace ptzd::com
