#include <atomic>
#include <string_view>

#include "com/ClassTable.h"
#include "com/Dispatch.h"
#include "com/Errors.h"
#include "com/ForeignBag.h"
#include "com/Log.h"
#include "com/Module.h"
#include "com/Registration.h"
#include "transport/HTTPClientHelper.h"

using namespace ptzd::com;

namespace {

/// A class's factory.
class ClassFactory final : public IClassFactory {
 public:
  explicit ClassFactory(const CreatableClass& row) : Row_(row) { KeepLoaded(); }
  virtual ~ClassFactory() { LetUnload(); }

  HRESULT STDMETHODCALLTYPE QueryInterface(REFIID iid, void** object) override {
    if (!object) return E_POINTER;
    *object = nullptr;
    if (!IsEqualIID(iid, IID_IUnknown) && !IsEqualIID(iid, IID_IClassFactory)) return E_NOINTERFACE;
    *object = static_cast<IClassFactory*>(this);
    AddRef();
    return S_OK;
  }
  ULONG STDMETHODCALLTYPE AddRef() override { return ++References_; }
  ULONG STDMETHODCALLTYPE Release() override {
    const auto left = --References_;
    if (left == 0) delete this;
    return left;
  }
  HRESULT STDMETHODCALLTYPE CreateInstance(IUnknown* outer, REFIID iid, void** object) override {
    if (!object) return E_POINTER;
    *object = nullptr;
    if (outer) return CLASS_E_NOAGGREGATION;
    try {
      return Row_.Create(Row_, {.Exchanges = LoggedExchanges()})->QueryInterface(iid, object);
    } catch (...) {
      return ReportException(Row_.ProgID());
    }
  }
  HRESULT STDMETHODCALLTYPE LockServer(BOOL lock) override {
    lock ? KeepLoaded() : LetUnload();
    return S_OK;
  }

 private:
  const CreatableClass& Row_;
  std::atomic<ULONG> References_{0};
};

}  // namespace

extern "C" {

HRESULT WINAPI DllGetClassObject(REFCLSID identifier, REFIID iid, void** object) {
  if (!object) return E_POINTER;
  *object = nullptr;
  const auto* row = FindCreatableClass(identifier);
  if (!row) return CLASS_E_CLASSNOTAVAILABLE;
  try {
    ptzd::SetForeignContentsOpener(&OpenForeignContents);
    return ComPtr<IClassFactory>(new ClassFactory(*row))->QueryInterface(iid, object);
  } catch (...) {
    return ReportException({});
  }
}

HRESULT WINAPI DllCanUnloadNow() {
  if (IsHeld() || ptzd::AsyncHandles().Count() > 0) return S_FALSE;
  ForgetTables();
  return S_OK;
}

HRESULT WINAPI DllRegisterServer() {
  try {
    return RegisterLibrary();
  } catch (...) {
    return ReportException({});
  }
}

HRESULT WINAPI DllUnregisterServer() {
  try {
    return UnregisterLibrary();
  } catch (...) {
    return ReportException({});
  }
}

/// `regsvr32 /n /i:machine` and `/i:user`: for all users or the current one, and for no others where that
/// fails.
HRESULT WINAPI DllInstall(BOOL install, PCWSTR scope) {
  const std::wstring_view word = scope ? scope : L"";
  if (word != L"machine" && word != L"user") return E_INVALIDARG;
  const auto users = word == L"machine" ? Users::All : Users::Current;
  try {
    install ? RegisterLibraryFor(users) : UnregisterLibraryFor(users);
    return S_OK;
  } catch (...) {
    return ReportException({});
  }
}
}
