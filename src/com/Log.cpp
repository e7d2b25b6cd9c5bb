#include "com/Log.h"

#include "com/Contract.h"

#include <array>
#include <atomic>
#include <cerrno>
#include <chrono>
#include <cstdio>
#include <mutex>
#include <string>
#include <system_error>

#include <ptzd/Logging.h>
#include "com/Object.h"
#include "common/OneLine.h"

namespace ptzd::com {

namespace {

/// "2026-11-22T03:25:01.123Z"
std::string TimeText(std::chrono::system_clock::time_point time) {
  const auto day = std::chrono::floor<std::chrono::days>(time);
  const std::chrono::year_month_day date(day);
  const std::chrono::hh_mm_ss clock(std::chrono::floor<std::chrono::milliseconds>(time - day));
  std::array<char, 32> text{};
  std::snprintf(text.data(), text.size(), "%04d-%02u-%02uT%02d:%02d:%02d.%03dZ",
                static_cast<int>(date.year()), static_cast<unsigned>(date.month()),
                static_cast<unsigned>(date.day()), static_cast<int>(clock.hours().count()),
                static_cast<int>(clock.minutes().count()), static_cast<int>(clock.seconds().count()),
                static_cast<int>(clock.subseconds().count()));
  return text.data();
}

/// The log file of the process. Each line is in the file when it is told, so nothing is lost with the
/// process.
class LogFile final : public ExchangeSink {
 public:
  void Start(const std::string& name) {
    const std::lock_guard switching(Switching_);
    std::FILE* file = _wfopen(Utf16(name).c_str(), L"ab");
    if (file == nullptr)
      throw Error(ErrorPathAccess, RunTimeErrorText(ErrorPathAccess) + ": " + name + ", " +
                                       std::generic_category().message(errno));
    Replace(file);
    SetLogLineSink([this](const LogLine& line) {
      Write(line.When, line.Level, line.DriverClass, line.Address, OneLine(line.Text));
    });
  }
  void Stop() {
    const std::lock_guard switching(Switching_);
    SetLogLineSink({});
    Replace(nullptr);
  }
  /// The same at the end of the library. A thread that is in its midst has been ended by the process.
  void StopAtEnd() {
    On_ = false;
    const std::unique_lock lock(Mutex_, std::try_to_lock);
    if (lock && File_ != nullptr) std::fclose(std::exchange(File_, nullptr));
  }
  bool Listens() const override { return On_; }

  void Ended(const Exchange& exchange) override {
    const bool refused = exchange.StatusCode >= 400;
    Write(exchange.When + std::chrono::duration_cast<std::chrono::system_clock::duration>(exchange.Took),
          exchange.ErrorNumber != 0 ? LogLevel::Error
          : refused                 ? LogLevel::Warning
                                    : LogLevel::Info,
          exchange.DriverClass, exchange.Where, Describe(exchange));
  }

 private:
  void Replace(std::FILE* file) {
    const std::lock_guard lock(Mutex_);
    if (File_ != nullptr) std::fclose(File_);
    File_ = file;
    On_ = file != nullptr;
  }

  void Write(std::chrono::system_clock::time_point when, LogLevel level, std::string_view driver,
             std::string_view address, std::string_view text) {
    const auto known = [](std::string_view part) { return part.empty() ? std::string_view("-") : part; };
    auto line = TimeText(when);
    for (const auto part : {NameOf(level), known(driver), known(address), text})
      line.append(" ").append(part);
    line += "\r\n";
    const std::lock_guard lock(Mutex_);
    if (File_ == nullptr) return;
    const bool written = std::fwrite(line.data(), 1, line.size(), File_) == line.size();
    if (written && std::fflush(File_) == 0) return;
    // A full disk: the property says that nothing is written any more.
    std::fclose(std::exchange(File_, nullptr));
    On_ = false;
  }

  std::mutex Switching_;
  std::mutex Mutex_;
  std::FILE* File_ = nullptr;
  std::atomic<bool> On_ = false;
};

const std::shared_ptr<LogFile>& TheLogFile() {
  // Never destroyed: a request may complete while the process ends.
  static const auto& file = *new auto(std::make_shared<LogFile>());
  static const struct Closer {
    ~Closer() { file->StopAtEnd(); }
  } closer;
  return file;
}

class Log final : public SingleObject<::_Log> {
 public:
  Log() : SingleObject("Log") {}

  HRESULT STDMETHODCALLTYPE Start(BSTR FileName) override {
    return Do([&] { TheLogFile()->Start(Utf8(FileName)); });
  }
  HRESULT STDMETHODCALLTYPE Stop() override {
    return Do([] { TheLogFile()->Stop(); });
  }
  HRESULT STDMETHODCALLTYPE get_Active(VARIANT_BOOL* Result) override {
    return Answer(Result, [] { return TheLogFile()->Listens(); });
  }
};

}  // namespace

ComPtr<IUnknown> NewLog() { return static_cast<::_Log*>(new Log()); }

std::shared_ptr<ExchangeSink> LoggedExchanges() { return TheLogFile(); }

}  // namespace ptzd::com
