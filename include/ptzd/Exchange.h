#pragma once

#include <chrono>
#include <cstdint>
#include <string>
#include <string_view>

#include <ptzd/Export.h>
#include <ptzd/Variant.h>

namespace ptzd {

enum class ExchangeLink { HTTP, Serial, TCP };

/// How the way to the camera failed an exchange.
enum class LinkFailure {
  Nothing,       ///< it did not fail
  NotConnected,  ///< no connection could be made, or no line opened
  Silent,        ///< nothing came in time
  Closed,        ///< the connection ended before there was a reply
  Reset,         ///< the same, with a reset
};

/// One exchange with a camera, as the place tells it where it happens. Texts are UTF-8, with the logins that
/// drivers know masked.
struct Exchange {
  static constexpr std::size_t MaxBeginning = 512;  ///< bytes kept of a reply

  std::uint64_t Number = 0;        ///< its own in the process; begin and end have the same
  std::string_view DriverClass;    ///< "QVPTZ.Axis"; empty where no driver made it
  std::uint64_t DriverObject = 0;  ///< its own for each driver object of the process
  ExchangeLink Link = ExchangeLink::HTTP;
  std::string Where;  ///< "192.168.0.90:80"; "COM1" of a serial port

  std::string Method, URL;  ///< HTTP: "GET" or "POST", and the whole URL
  Bytes Sent;               ///< the frame or message, or the body of a POST; a line that is opened has none
  bool Awaited = true;      ///< else nobody waits for the reply; it is told when the request is over

  std::int32_t StatusCode = 0;  ///< of HTTP; 0 where there was none, as on lines that do not answer
  std::string Reason;           ///< behind the status: "Unauthorized"
  std::uint64_t ReplySize = 0;
  std::string ReplyBeginning;  ///< at most `MaxBeginning` bytes, read as code page 1252
  std::string ReplyHeaders;    ///< of HTTP: the lines behind the status line, each ended by CR LF
  Bytes Reply;                 ///< the body, as much of it as the sink wants (`ExchangeSink::WantsOfReply`)

  std::int32_t ErrorNumber = 0;  ///< why it failed; 0 where it did not, whatever the status says
  std::string ErrorText;
  bool HadConnection = true;  ///< else nothing of it can have arrived
  LinkFailure Failure = LinkFailure::Nothing;

  std::chrono::system_clock::time_point When;
  std::chrono::nanoseconds Took{};  ///< until its end was known; 0 at its beginning
};

/// Is told of a driver's exchanges. The members are called on the thread that makes the exchange, for
/// requests that nobody waits for on any; they must be quick, must not raise and must not call the driver.
class PTZD_API ExchangeSink {
 public:
  virtual ~ExchangeSink() = default;

  /// A request that nobody waits for was handed over (`Awaited` is False); `Ended` follows, at the latest
  /// after the time-outs, or never where the process ends before.
  virtual void Begun(const Exchange&) {}
  virtual void Ended(const Exchange& exchange) = 0;
  /// False as long as nobody wants to know: what begins meanwhile is not told. Asked at each beginning, on
  /// any thread.
  virtual bool Listens() const { return true; }
  /// How many bytes of a reply's body are kept for `Exchange::Reply`; asked at each beginning, on any thread.
  virtual std::size_t WantsOfReply() const { return 0; }
};

/// An exchange in a line, as people read it: "GET http://192.168.0.90/ -> 401 Unauthorized, 12 bytes, 3.1
/// ms", "COM1: FF 01 00 07 00 01 09 -> sent, 0.2 ms".
PTZD_API std::string Describe(const Exchange& exchange);

}  // namespace ptzd
