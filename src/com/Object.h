#pragma once

#include "com/Automation.h"

#include <atomic>
#include <concepts>
#include <memory>
#include <string>
#include <vector>

#include "com/Dispatch.h"
#include "com/Errors.h"
#include "com/Values.h"

namespace ptzd::com {

/// The identity of every object that a host holds: it counts the references of all interfaces, hands them
/// out, and keeps the DLL loaded. References may be released from any thread.
class Object : public ISupportErrorInfo {
 public:
  /// The class name without the library's ("Axis").
  explicit Object(const std::string& className);
  Object(const Object&) = delete;
  Object& operator=(const Object&) = delete;
  virtual ~Object();

  HRESULT STDMETHODCALLTYPE QueryInterface(REFIID iid, void** object) override;
  ULONG STDMETHODCALLTYPE AddRef() override;
  ULONG STDMETHODCALLTYPE Release() override;
  HRESULT STDMETHODCALLTYPE InterfaceSupportsErrorInfo(REFIID iid) override;

  /// What errors without a source of their own name as theirs: "QVPTZ.Axis".
  const std::string& Source() const { return Source_; }

 protected:
  /// The object's pointer to an interface, null where it lacks it; the same one every time.
  virtual IUnknown* Find(REFIID iid) = 0;

 private:
  std::atomic<ULONG> References_{0};
  std::string Source_;
};

/// Answers late-bound calls of one adaptor.
class Dispatcher {
 public:
  struct Part {
    IID Interface;
    IUnknown* Target;
  };

  /// `self` implements `own`; members of the others are answered too.
  Dispatcher(IUnknown* self, REFIID own, const std::vector<Part>& others);
  /// For members that no type library holds.
  Dispatcher(IUnknown* self, std::shared_ptr<const DispatchTable> table);

  HRESULT GetTypeInfoCount(UINT* count) noexcept;
  HRESULT GetTypeInfo(UINT index, ITypeInfo** info) noexcept;
  HRESULT GetIDsOfNames(REFIID iid, LPOLESTR* names, UINT count, DISPID* ids) noexcept;
  HRESULT Invoke(DISPID id, REFIID iid, LCID locale, WORD flags, DISPPARAMS* arguments, VARIANT* result,
                 EXCEPINFO* exception, UINT* wrongArgument, const std::string& source) noexcept;

 private:
  const DispatchTable& Table();

  std::vector<IID> Interfaces_;
  std::vector<IUnknown*> Targets_;
  std::shared_ptr<const DispatchTable> Table_;  // made when first needed; early-bound hosts never do
};

inline void Store(float* out, float value) { *out = value; }
inline void Store(LONG* out, std::int32_t value) { *out = value; }
inline void Store(VARIANT_BOOL* out, bool value) { *out = value ? VARIANT_TRUE : VARIANT_FALSE; }
inline void Store(BSTR* out, const std::string& value) { *out = NewBstr(value); }
inline void Store(VARIANT* out, const Variant& value) { *out = ToVariant(value).Release(); }
inline void Store(VARIANT* out, OwnedVariant value) { *out = value.Release(); }
inline void Store(SAFEARRAY** out, SAFEARRAY* value) { *out = value; }
template <class Enumeration>
requires std::is_enum_v<Enumeration>
void Store(Enumeration* out, Enumeration value) { *out = value; }
template <class Interface, std::derived_from<Interface> Implementation>
void Store(Interface** out, ComPtr<Implementation> value) {
  *out = value.Detach();
}

/// An object's implementation of a dual interface, without its own members.
template <class Interface>
class Adaptor : public Interface {
 public:
  explicit Adaptor(Object& object, REFIID iid = __uuidof(Interface),
                   const std::vector<Dispatcher::Part>& others = {})
      : Object_(object), Dispatcher_(this, iid, others) {}
  Adaptor(Object& object, std::shared_ptr<const DispatchTable> table)
      : Object_(object), Dispatcher_(this, std::move(table)) {}
  Adaptor(const Adaptor&) = delete;
  Adaptor& operator=(const Adaptor&) = delete;

  HRESULT STDMETHODCALLTYPE QueryInterface(REFIID iid, void** object) override {
    return Object_.QueryInterface(iid, object);
  }
  ULONG STDMETHODCALLTYPE AddRef() override { return Object_.AddRef(); }
  ULONG STDMETHODCALLTYPE Release() override { return Object_.Release(); }

  HRESULT STDMETHODCALLTYPE GetTypeInfoCount(UINT* count) override {
    return Dispatcher_.GetTypeInfoCount(count);
  }
  HRESULT STDMETHODCALLTYPE GetTypeInfo(UINT index, LCID, ITypeInfo** info) override {
    return Dispatcher_.GetTypeInfo(index, info);
  }
  HRESULT STDMETHODCALLTYPE GetIDsOfNames(REFIID iid, LPOLESTR* names, UINT count, LCID,
                                          DISPID* ids) override {
    return Dispatcher_.GetIDsOfNames(iid, names, count, ids);
  }
  HRESULT STDMETHODCALLTYPE Invoke(DISPID id, REFIID iid, LCID locale, WORD flags, DISPPARAMS* arguments,
                                   VARIANT* result, EXCEPINFO* exception, UINT* wrongArgument) override {
    return Dispatcher_.Invoke(id, iid, locale, flags, arguments, result, exception, wrongArgument,
                              Object_.Source());
  }

 protected:
  /// Runs a member's work. What it throws becomes the member's HRESULT and the thread's error object.
  template <class Work>
  HRESULT Do(const Work& work) noexcept {
    try {
      work();
      return S_OK;
    } catch (...) {
      return ReportException(Object_.Source());
    }
  }
  /// The same for a member with a result, which is zero or null where it fails.
  template <class Result, class Work>
  HRESULT Answer(Result* result, const Work& work) noexcept {
    if (!result) return E_POINTER;
    *result = {};
    return Do([&] { Store(result, work()); });
  }

 private:
  Object& Object_;
  Dispatcher Dispatcher_;
};

/// An object with a single dual interface.
template <class Interface>
class SingleObject : public Object, public Adaptor<Interface> {
 public:
  explicit SingleObject(const std::string& className)
      : Object(className), Adaptor<Interface>(*static_cast<Object*>(this)) {}

  using Object::AddRef;
  using Object::QueryInterface;
  using Object::Release;

 protected:
  IUnknown* Find(REFIID iid) override {
    return IsEqualIID(iid, __uuidof(Interface)) || IsEqualIID(iid, IID_IDispatch)
               ? static_cast<Interface*>(this)
               : nullptr;
  }
};

}  // namespace ptzd::com
