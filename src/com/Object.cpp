#include "com/Object.h"

#include "com/Module.h"

namespace ptzd::com {

Object::Object(const std::string& className) : Source_("QVPTZ." + className) { KeepLoaded(); }

Object::~Object() { LetUnload(); }

HRESULT Object::QueryInterface(REFIID iid, void** object) {
  if (!object) return E_POINTER;
  IUnknown* found =
      IsEqualIID(iid, IID_IUnknown) || IsEqualIID(iid, IID_ISupportErrorInfo) ? this : Find(iid);
  *object = found;
  if (!found) return E_NOINTERFACE;
  AddRef();
  return S_OK;
}

ULONG Object::AddRef() { return ++References_; }

ULONG Object::Release() {
  const auto left = --References_;
  if (left == 0) delete this;
  return left;
}

HRESULT Object::InterfaceSupportsErrorInfo(REFIID iid) { return Find(iid) ? S_OK : S_FALSE; }

Dispatcher::Dispatcher(IUnknown* self, REFIID own, const std::vector<Part>& others)
    : Interfaces_{own}, Targets_{self} {
  for (const auto& part : others) {
    Interfaces_.push_back(part.Interface);
    Targets_.push_back(part.Target);
  }
}

Dispatcher::Dispatcher(IUnknown* self, std::shared_ptr<const DispatchTable> table)
    : Targets_{self}, Table_(std::move(table)) {}

const DispatchTable& Dispatcher::Table() {
  if (!Table_) Table_ = TableOf(Interfaces_);
  return *Table_;
}

HRESULT Dispatcher::GetTypeInfoCount(UINT* count) noexcept {
  if (!count) return E_POINTER;
  *count = Interfaces_.empty() ? 0 : 1;
  return S_OK;
}

HRESULT Dispatcher::GetTypeInfo(UINT index, ITypeInfo** info) noexcept {
  if (!info) return E_POINTER;
  *info = nullptr;
  if (Interfaces_.empty()) return E_NOTIMPL;
  if (index != 0) return DISP_E_BADINDEX;
  try {
    *info = Table().Type().Detach();
    return S_OK;
  } catch (...) {
    return ReportException({});
  }
}

HRESULT Dispatcher::GetIDsOfNames(REFIID iid, LPOLESTR* names, UINT count, DISPID* ids) noexcept {
  if (!IsEqualIID(iid, IID_NULL)) return DISP_E_UNKNOWNINTERFACE;
  try {
    return Table().GetIDsOfNames(names, count, ids);
  } catch (...) {
    return ReportException({});
  }
}

HRESULT Dispatcher::Invoke(DISPID id, REFIID iid, LCID locale, WORD flags, DISPPARAMS* arguments,
                           VARIANT* result, EXCEPINFO* exception, UINT* wrongArgument,
                           const std::string& source) noexcept {
  if (!IsEqualIID(iid, IID_NULL)) return DISP_E_UNKNOWNINTERFACE;
  if (!arguments) return E_POINTER;
  try {
    return Table().Invoke(Targets_, id, locale, flags, *arguments, result, exception, wrongArgument);
  } catch (...) {
    const auto failure = ReportException(source);
    return FillException(failure, exception);
  }
}

}  // namespace ptzd::com
