#include "com/Errors.h"

#include <exception>
#include <new>

#include "com/Automation.h"
#include "com/Values.h"

namespace ptzd::com {

namespace {

constexpr HRESULT ControlErrors = static_cast<HRESULT>(0x800A0000);
constexpr std::int32_t ErrorInternal = 51;  // the run time's own number for what should never happen

void SetErrorObject(const std::string& source, const std::string& description) {
  ComPtr<ICreateErrorInfo> info;
  if (FAILED(CreateErrorInfo(&info))) return;
  info->SetSource(Utf16(source).data());
  info->SetDescription(Utf16(description).data());
  ComPtr<IErrorInfo> error;
  if (SUCCEEDED(info->QueryInterface(IID_IErrorInfo, &error))) SetErrorInfo(0, error.Get());
}

}  // namespace

HRESULT ResultFromNumber(std::int32_t number) { return number < 0 ? number : ControlErrors + number; }

HRESULT ReportException(const std::string& defaultSource) noexcept {
  try {
    try {
      throw;
    } catch (const Error& error) {
      SetErrorObject(error.Source().value_or(defaultSource), error.Description());
      return ResultFromNumber(error.Number());
    } catch (const std::bad_alloc&) {
      return E_OUTOFMEMORY;
    } catch (const std::exception& error) {
      SetErrorObject(defaultSource, std::string("Internal error: ") + error.what());
      return ResultFromNumber(ErrorInternal);
    }
  } catch (...) {
    return E_UNEXPECTED;
  }
}

HRESULT FillException(HRESULT failure, EXCEPINFO* exception) noexcept {
  ComPtr<IErrorInfo> error;
  const bool described = GetErrorInfo(0, &error) == S_OK;
  if (exception) {
    *exception = {};
    exception->scode = failure;
    if (described) {
      error->GetSource(&exception->bstrSource);
      error->GetDescription(&exception->bstrDescription);
    }
  }
  return DISP_E_EXCEPTION;
}

void ThrowException(HRESULT failure, EXCEPINFO& exception) {
  if (exception.pfnDeferredFillIn) exception.pfnDeferredFillIn(&exception);
  auto number = failure;
  if (failure == DISP_E_EXCEPTION)
    number = exception.scode ? exception.scode : ResultFromNumber(exception.wCode);
  if (HRESULT_FACILITY(number) == FACILITY_CONTROL) number = HRESULT_CODE(number);
  const auto source = Utf8(exception.bstrSource), description = Utf8(exception.bstrDescription);
  SysFreeString(exception.bstrSource);
  SysFreeString(exception.bstrDescription);
  SysFreeString(exception.bstrHelpFile);
  throw Error(number, description, source);
}

}  // namespace ptzd::com
