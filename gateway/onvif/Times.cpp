#include "gateway/onvif/Times.h"

#include <charconv>
#include <cmath>

#include "common/Numbers.h"

namespace ptzgate {

using std::chrono::milliseconds;

namespace {

/// Reads a text from its beginning on.
class Reader {
 public:
  explicit Reader(std::string_view text) : Rest_(text) {}

  bool IsAtEnd() const { return Rest_.empty(); }
  bool Take(char c) {
    if (!Rest_.starts_with(c)) return false;
    Rest_.remove_prefix(1);
    return true;
  }
  /// Of exactly so many digits.
  std::optional<int> Digits(std::size_t count) {
    int number = 0;
    if (Rest_.size() < count || Rest_.front() == '-') return std::nullopt;
    const auto [end, error] = std::from_chars(Rest_.data(), Rest_.data() + count, number);
    if (error != std::errc() || end != Rest_.data() + count) return std::nullopt;
    Rest_.remove_prefix(count);
    return number;
  }
  /// Digits, perhaps with a fraction.
  std::optional<double> Number() {
    if (Rest_.empty() || Rest_.front() < '0' || Rest_.front() > '9') return std::nullopt;
    double number = 0;
    const auto [end, error] =
        std::from_chars(Rest_.data(), Rest_.data() + Rest_.size(), number, std::chars_format::fixed);
    if (error != std::errc() || end[-1] == '.') return std::nullopt;
    Rest_ = Rest_.substr(static_cast<std::size_t>(end - Rest_.data()));
    return number;
  }

 private:
  std::string_view Rest_;
};

}  // namespace

std::optional<milliseconds> ReadDuration(std::string_view text) {
  constexpr double longest = 100.0 * 366 * 24 * 3600;
  Reader reader(text);
  if (!reader.Take('P')) return std::nullopt;
  double seconds = 0;
  bool isAny = false, isTime = false;
  struct Unit {
    char Letter;
    bool IsTime;
    double Seconds;
  };
  constexpr Unit units[] = {{'D', false, 86400}, {'H', true, 3600}, {'M', true, 60}, {'S', true, 1}};
  const auto* next = std::begin(units);
  while (!reader.IsAtEnd()) {
    if (!isTime && reader.Take('T')) isTime = true;
    const auto number = reader.Number();
    if (!number) return std::nullopt;
    while (next != std::end(units) && (next->IsTime != isTime || !reader.Take(next->Letter))) ++next;
    if (next == std::end(units)) return std::nullopt;
    seconds += *number * next->Seconds;
    isAny = true;
    ++next;
  }
  if (!isAny) return std::nullopt;
  return milliseconds(std::llround(std::min(seconds, longest) * 1000));
}

std::string DurationText(milliseconds duration) {
  return "PT" + ptzd::Text(static_cast<double>(duration.count()) / 1000) + "S";
}

std::optional<std::chrono::system_clock::time_point> ReadTime(std::string_view text) {
  using namespace std::chrono;
  Reader reader(text);
  const auto year = reader.Digits(4);
  if (!year || !reader.Take('-')) return std::nullopt;
  const auto month = reader.Digits(2);
  if (!month || !reader.Take('-')) return std::nullopt;
  const auto day = reader.Digits(2);
  if (!day || !reader.Take('T')) return std::nullopt;
  const auto hour = reader.Digits(2);
  if (!hour || !reader.Take(':')) return std::nullopt;
  const auto minute = reader.Digits(2);
  if (!minute || !reader.Take(':')) return std::nullopt;
  const auto second = reader.Number();
  const year_month_day date(std::chrono::year(*year), std::chrono::month(static_cast<unsigned>(*month)),
                            std::chrono::day(static_cast<unsigned>(*day)));
  // What the clock's count reaches in any case.
  if (*year < 1970 || *year > 2200) return std::nullopt;
  if (!second || *second >= 61 || *hour > 24 || *minute > 59 || !date.ok()) return std::nullopt;
  auto time = sys_days(date) + hours(*hour) + minutes(*minute) + milliseconds(std::llround(*second * 1000));
  const bool isAhead = reader.Take('+');
  if (isAhead || reader.Take('-')) {
    const auto offsetHours = reader.Digits(2);
    if (!offsetHours || !reader.Take(':')) return std::nullopt;
    const auto offsetMinutes = reader.Digits(2);
    if (!offsetMinutes) return std::nullopt;
    const auto offset = hours(*offsetHours) + minutes(*offsetMinutes);
    time += isAhead ? -offset : offset;
  } else {
    reader.Take('Z');
  }
  if (!reader.IsAtEnd()) return std::nullopt;
  return time;
}

}  // namespace ptzgate
