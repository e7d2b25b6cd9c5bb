#include "com/SerialPorts.h"

#include "com/Contract.h"

#include <memory>
#include <string>
#include <utility>

#include <ptzd/SerialPortPool.h>
#include "com/LateBound.h"
#include "com/Object.h"

namespace ptzd::com {

namespace {

/// What a host's member answered, as another type. Raises 13 (type mismatch) where it is no such thing.
OwnedVariant AnswerAs(VARTYPE type, const OwnedVariant& answer, const char* member) {
  OwnedVariant result;
  if (FAILED(Convert(result, *answer, type)))
    throw Error(ErrorTypeMismatch, RunTimeErrorText(ErrorTypeMismatch) + ": the host's member " + member +
                                       " answered " + KindOf(*answer));
  return result;
}

class HostSerialPort final : public SerialPort {
 public:
  explicit HostSerialPort(ComPtr<IDispatch> port) : Port_(std::move(port)) {}

  std::int32_t CommPort() override {
    const auto number = CallByName(Port_.Get(), L"CommPort", DISPATCH_PROPERTYGET);
    return V_I4(&*AnswerAs(VT_I4, number, "CommPort"));
  }
  void Settings(std::string_view text) override { Put(L"Settings", std::string(text)); }
  bool PortOpen() override {
    const auto open = CallByName(Port_.Get(), L"PortOpen", DISPATCH_PROPERTYGET);
    return V_BOOL(&*AnswerAs(VT_BOOL, open, "PortOpen")) != VARIANT_FALSE;
  }
  void PortOpen(bool open) override { Put(L"PortOpen", open); }
  void Output(std::span<const std::uint8_t> frame) override {
    Put(L"Output", Bytes(frame.begin(), frame.end()));
  }

 private:
  void Put(const wchar_t* property, const Variant& value) {
    const auto given = ToVariant(value);
    VARIANT arguments[] = {*given};
    CallByName(Port_.Get(), property, DISPATCH_PROPERTYPUT, arguments);
  }

  ComPtr<IDispatch> Port_;
};

class HostSerialPortPool final : public SerialPortPool {
 public:
  explicit HostSerialPortPool(ComPtr<IDispatch> pool) : Pool_(std::move(pool)) {}

  /// Null where the host answers Nothing.
  std::shared_ptr<SerialPort> Acquire(std::int32_t portNumber) override {
    const auto port = AnswerAs(VT_DISPATCH, Call(L"AcquirePort", portNumber), "AcquirePort");
    if (!V_DISPATCH(&*port)) return nullptr;
    return std::make_shared<HostSerialPort>(V_DISPATCH(&*port));
  }
  bool Release(std::int32_t portNumber) override {
    return V_BOOL(&*AnswerAs(VT_BOOL, Call(L"ReleasePort", portNumber), "ReleasePort")) != VARIANT_FALSE;
  }

 private:
  OwnedVariant Call(const wchar_t* method, std::int32_t portNumber) {
    const auto number = ToVariant(portNumber);
    VARIANT arguments[] = {*number};
    return CallByName(Pool_.Get(), method, DISPATCH_METHOD, arguments);
  }

  ComPtr<IDispatch> Pool_;
};

/// Keeps the host's pool in place for as long as it lives: a thread's end would be too late to let go of the
/// host's object, as COM has been left by then.
class SerialPorts final : public SingleObject<::_SerialPorts> {
 public:
  SerialPorts() : SingleObject("SerialPorts") {}
  ~SerialPorts() override { PutBack(); }

  HRESULT STDMETHODCALLTYPE UsePool(IDispatch* Pool) override {
    return Do([&] {
      auto pool = Pool ? std::make_shared<HostSerialPortPool>(Pool) : nullptr;
      PutBack();
      Pool_ = std::move(pool);
      if (Pool_) UseSerialPortPool(Pool_);
    });
  }

 private:
  /// Unless another object has put its own in place since.
  void PutBack() {
    if (Pool_ && ThreadSerialPortPool() == Pool_) UseSerialPortPool(nullptr);
    Pool_.reset();
  }

  std::shared_ptr<SerialPortPool> Pool_;
};

}  // namespace

ComPtr<IUnknown> NewSerialPorts() { return static_cast<::_SerialPorts*>(new SerialPorts()); }

}  // namespace ptzd::com
