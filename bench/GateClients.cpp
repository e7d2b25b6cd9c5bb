#include "GateClients.h"

#include <curl/curl.h>
#include <mosquitto.h>
#include <sys/socket.h>
#include <unistd.h>

#include <boost/asio/io_context.hpp>
#include <boost/asio/ip/tcp.hpp>
#include <boost/beast/core/buffers_to_string.hpp>
#include <boost/beast/core/flat_buffer.hpp>
#include <boost/beast/websocket.hpp>
#include <charconv>
#include <functional>
#include <future>
#include <stdexcept>

#include "GateProcess.h"

namespace {

using namespace std::chrono_literals;
using nlohmann::json;
namespace asio = boost::asio;
namespace beast = boost::beast;

/// A stop to a camera that says nothing is tried for a minute, a move watched for as long.
constexpr auto LongestAnswer = 150s;
constexpr auto RenewPace = 300ms;
constexpr std::chrono::milliseconds Lease = 1s;  ///< longer than any is driven without being renewed

std::string NameOf(const Station& camera) { return GateProcess::NameOf(camera.Index()); }

GateAnswer AnswerOf(const json& outcome) {
  return {outcome.value("done", false), outcome.value("result", ""), outcome.value("text", "")};
}

GateAnswer RefusalOf(const json& problem) { return {false, "refused", problem.value("detail", "")}; }

json WithLease(json body, std::chrono::milliseconds lease = Lease) {
  body["lease_ms"] = lease.count();
  return body;
}

}  // namespace

struct HTTPLine::Handle {
  std::string Base;
  std::atomic<int> Socket = -1;
  std::string Body;
  std::unique_ptr<CURL, decltype(&curl_easy_cleanup)> Curl{curl_easy_init(), curl_easy_cleanup};

  static curl_socket_t Open(void* self, curlsocktype, curl_sockaddr* address) {
    return static_cast<Handle*>(self)->Socket =
               socket(address->family, address->socktype | SOCK_CLOEXEC, address->protocol);
  }
  /// Its number is somebody else's soon.
  static int Close(void* self, curl_socket_t socket) {
    static_cast<Handle*>(self)->Socket = -1;
    return close(socket);
  }
  static std::size_t Take(char* data, std::size_t size, std::size_t count, void* self) {
    static_cast<Handle*>(self)->Body.append(data, size * count);
    return size * count;
  }
};

HTTPLine::HTTPLine(std::uint16_t port) : Handle_(std::make_unique<Handle>()) {
  Handle_->Base = "http://127.0.0.1:" + std::to_string(port);
  auto* curl = Handle_->Curl.get();
  curl_easy_setopt(curl, CURLOPT_WRITEFUNCTION, Handle::Take);
  curl_easy_setopt(curl, CURLOPT_WRITEDATA, Handle_.get());
  curl_easy_setopt(curl, CURLOPT_OPENSOCKETFUNCTION, Handle::Open);
  curl_easy_setopt(curl, CURLOPT_OPENSOCKETDATA, Handle_.get());
  curl_easy_setopt(curl, CURLOPT_CLOSESOCKETFUNCTION, Handle::Close);
  curl_easy_setopt(curl, CURLOPT_CLOSESOCKETDATA, Handle_.get());
  curl_easy_setopt(curl, CURLOPT_NOSIGNAL, 1L);
  curl_easy_setopt(curl, CURLOPT_NOPROXY, "*");
}

HTTPLine::~HTTPLine() = default;

HTTPReply HTTPLine::Ask(const char* method, const std::string& path, const std::string& body,
                        const char* type) {
  auto* curl = Handle_->Curl.get();
  Handle_->Body.clear();
  const std::unique_ptr<curl_slist, decltype(&curl_slist_free_all)> headers(
      curl_slist_append(nullptr, ("Content-Type: " + std::string(type)).c_str()), curl_slist_free_all);
  curl_easy_setopt(curl, CURLOPT_URL, (Handle_->Base + path).c_str());
  curl_easy_setopt(curl, CURLOPT_HTTPHEADER, headers.get());
  curl_easy_setopt(curl, CURLOPT_TIMEOUT, static_cast<long>(std::chrono::seconds(LongestAnswer).count()));
  if (std::string_view(method) == "GET") {
    curl_easy_setopt(curl, CURLOPT_HTTPGET, 1L);
  } else {
    curl_easy_setopt(curl, CURLOPT_POST, 1L);
    curl_easy_setopt(curl, CURLOPT_POSTFIELDSIZE, static_cast<long>(body.size()));
    curl_easy_setopt(curl, CURLOPT_COPYPOSTFIELDS, body.c_str());
  }
  curl_easy_setopt(curl, CURLOPT_CUSTOMREQUEST, method);
  HTTPReply reply;
  if (curl_easy_perform(curl) != CURLE_OK) return reply;
  long status = 0;
  curl_easy_getinfo(curl, CURLINFO_RESPONSE_CODE, &status);
  return {static_cast<int>(status), std::move(Handle_->Body)};
}

json HTTPLine::Get(const std::string& path) {
  const auto reply = Ask("GET", path);
  if (reply.Status != 200) throw std::runtime_error(path + ": status " + std::to_string(reply.Status));
  return json::parse(reply.Body);
}

GateAnswer HTTPLine::Wish(const std::string& camera, const GateWish& wish, bool waitsForRest) {
  auto path = "/api/v1/cameras/" + camera;
  auto body = wish.Body;
  if (wish.Word == "go") {
    path += "/presets/" + body["preset"].get<std::string>() + "/go";
    body.clear();
  } else {
    path += "/" + wish.Word;
  }
  const auto reply = Ask("POST", path + (waitsForRest ? "" : "?wait=sent"), body.empty() ? "" : body.dump());
  const auto answer = json::parse(reply.Body, nullptr, false);
  if (!answer.is_object()) return {};
  if (reply.Status == 200) return AnswerOf(answer);
  return answer.contains("outcome") ? AnswerOf(answer["outcome"]) : RefusalOf(answer);
}

void HTTPLine::KeepNothing() { curl_easy_setopt(Handle_->Curl.get(), CURLOPT_FORBID_REUSE, 1L); }

void HTTPLine::Break() { shutdown(Handle_->Socket, SHUT_RDWR); }

// What all clients do.

void GateClient::Rest(std::chrono::milliseconds time) { std::this_thread::sleep_for(time); }

void GateClient::Run(const std::atomic<bool>& stop) {
  while (!stop) {
    try {
      Turn();
    } catch (const std::exception& error) {
      Book_.Complain(std::string("a client: ") + error.what());
      Rest(1s);
    }
  }
}

void GateClient::Turn() {
  auto& camera = *Stations_[Random_() % Stations_.size()];
  const auto& make = Makes_.at(camera.Driver());
  const auto roll = Random_() % 10;
  if (roll < 4 && !make.Drives.empty()) return Drive(camera, make);
  if (roll == 4) return Look(camera);
  const auto& wish = make.Wishes[Random_() % make.Wishes.size()];
  if (!CanDo(wish)) return Look(camera);
  const auto ticket = Book_.Begin(camera, wish);
  Book_.Judge(ticket, Do(camera, wish));
  Rest(std::chrono::milliseconds(5 + Random_() % 50));
}

void GateClient::Drive(Station& camera, const GateMake& make) {
  const auto& [wish, stopping] = make.Drives[Random_() % make.Drives.size()];
  const auto drive = Book_.Begin(camera, wish);
  if (const auto refused = BeginDrive(camera, wish)) return Book_.Judge(drive, *refused);
  // It may be over before it went out, where the machine has no time for it.
  for (const auto limit = drive.Began + 5s; !camera.Got(wish, drive.Began, 0ms) && SteadyClock::now() < limit;
       Rest(5ms))
    if (camera.WasAway(drive.Began)) break;
  for (auto left = std::chrono::milliseconds(Random_() % 1500); left > 0ms; left -= RenewPace) {
    Rest(std::min<std::chrono::milliseconds>(left, RenewPace));
    if (left > RenewPace) Renew(camera, wish);
  }
  const auto how = Random_() % 10;
  if (how == 0 && CanBreak()) {
    const auto killed = SteadyClock::now();
    Break();
    return Book_.JudgeKilled(drive, stopping, killed, Lease);
  }
  if (how < 3 && TellsLeases()) return Book_.Judge(drive, EndOfDrive());
  const auto stop = Book_.Begin(camera, stopping);
  Book_.Judge(stop, Do(camera, stopping));
  Book_.Judge(drive, EndOfDrive());
}

namespace {

/// By HTTP and JSON. A drive's request is answered at its end, so it has a connection of its own.
class HTTPClient final : public GateClient {
 public:
  HTTPClient(const Place& place, std::vector<Station*> stations, unsigned seed)
      : GateClient(place, std::move(stations), seed), Line_(place.Gate), Driving_(place.Gate) {
    Driving_.KeepNothing();
  }

 protected:
  GateAnswer Do(Station& camera, const GateWish& wish) override {
    return Line_.Wish(NameOf(camera), wish, !wish.IsMove() || ++Turns_ % 4 == 0);
  }
  std::optional<GateAnswer> BeginDrive(Station& camera, const GateWish& drive) override {
    GateWish wish = drive;
    wish.Body = WithLease(wish.Body);
    Driven_ = std::async(std::launch::async,
                         [this, name = NameOf(camera), wish] { return Driving_.Wish(name, wish); });
    return std::nullopt;
  }
  // It may be over already, where the camera is away.
  void Renew(Station& camera, const GateWish&) override {
    Line_.Ask("PUT", "/api/v1/cameras/" + NameOf(camera) + "/drive");
  }
  GateAnswer EndOfDrive() override { return Driven_.get(); }
  bool CanBreak() const override { return true; }
  void Break() override {
    Driving_.Break();
    Driven_.wait();
  }
  void Look(Station& camera) override {
    Line_.Get("/api/v1/cameras/" + NameOf(camera) + (++Turns_ % 2 == 0 ? "" : "/presets"));
  }

 private:
  HTTPLine Line_, Driving_;
  std::future<GateAnswer> Driven_;
  unsigned Turns_ = 0;
};

/// As an NVR does. Its drives end by themselves, with a time that is not met here.
class SOAPClient final : public GateClient {
 public:
  SOAPClient(const Place& place, std::vector<Station*> stations, unsigned seed)
      : GateClient(place, std::move(stations), seed), Line_(place.Gate), Book_(place.Book) {}

 protected:
  GateAnswer Do(Station& camera, const GateWish& wish) override {
    if (wish.Word == "stop") return Ask(camera, "Stop", "");
    return Ask(camera, "GotoPreset",
               "<tptz:PresetToken>" + wish.Body["preset"].get<std::string>() + "</tptz:PresetToken>");
  }
  bool CanDo(const GateWish& wish) const override { return wish.Word == "stop" || wish.Word == "go"; }
  std::optional<GateAnswer> BeginDrive(Station& camera, const GateWish& drive) override {
    const auto pan = drive.Body["part"]["pan"].dump();
    Book_.MayEndUnseen();
    Driven_ = Ask(camera, "ContinuousMove",
                  "<tptz:Velocity><tt:PanTilt x=\"" + pan +
                      "\" y=\"0\"/></tptz:Velocity><tptz:Timeout>PT30S</tptz:Timeout>");
    if (Driven_.IsDone) return std::nullopt;
    return Driven_;
  }
  void Renew(Station&, const GateWish&) override {}
  GateAnswer EndOfDrive() override { return Driven_; }
  bool TellsLeases() const override { return false; }
  void Look(Station& camera) override { Ask(camera, "GetPresets", ""); }

 private:
  GateAnswer Ask(const Station& camera, const std::string& operation, const std::string& body) {
    const auto reply = Line_.Ask(
        "POST", "/onvif/" + NameOf(camera) + "/ptz_service",
        "<env:Envelope xmlns:env=\"http://www.w3.org/2003/05/soap-envelope\" "
        "xmlns:tptz=\"http://www.onvif.org/ver20/ptz/wsdl\" xmlns:tt=\"http://www.onvif.org/ver10/schema\">"
        "<env:Body><tptz:" +
            operation + "><tptz:ProfileToken>profile</tptz:ProfileToken>" + body + "</tptz:" + operation +
            "></env:Body></env:Envelope>",
        "application/soap+xml; charset=utf-8");
    if (reply.Status == 0) return {};
    return {reply.Status == 200, reply.Status == 200 ? "sent" : "fault",
            reply.Status == 200 ? "" : reply.Body};
  }

  HTTPLine Line_;
  GateBook& Book_;
  GateAnswer Driven_;
};

/// What clients have in common whose answers come with the id of what was asked.
class MessageClient : public GateClient {
 protected:
  MessageClient(const Place& place, std::vector<Station*> stations, unsigned seed)
      : GateClient(place, std::move(stations), seed), LastID_(seed * 1'000'000) {}

  virtual void Send(const std::string& camera, const std::string& word, json body) = 0;
  /// Takes in what comes meanwhile.
  virtual void Run(std::chrono::milliseconds time) = 0;

  unsigned NextID() { return ++LastID_; }
  void Came(unsigned id, GateAnswer answer) { Answers_[id] = std::move(answer); }
  GateAnswer Await(unsigned id) {
    for (const auto limit = SteadyClock::now() + LongestAnswer; SteadyClock::now() < limit; Run(100ms)) {
      if (const auto found = Answers_.find(id); found != Answers_.end()) {
        const auto answer = std::move(found->second);
        Answers_.erase(found);
        return answer;
      }
      if (id < OldestID_) return {false, GateAnswer::CutOff, ""};
    }
    return {};
  }
  bool HasCome(unsigned id) const { return Answers_.contains(id); }

  GateAnswer Do(Station& camera, const GateWish& wish) override {
    auto body = wish.Body;
    const auto id = body["id"] = NextID();
    Send(NameOf(camera), wish.Word, body);
    return Await(id);
  }
  std::optional<GateAnswer> BeginDrive(Station& camera, const GateWish& drive) override {
    auto body = WithLease(drive.Body, LeaseOfDrives());
    body["id"] = DriveID_ = NextID();
    Send(NameOf(camera), "drive", body);
    return std::nullopt;
  }
  virtual std::chrono::milliseconds LeaseOfDrives() const { return Lease; }
  GateAnswer EndOfDrive() override { return Await(DriveID_); }
  void Rest(std::chrono::milliseconds time) override {
    const auto until = SteadyClock::now() + time;
    do
      Run(std::chrono::ceil<std::chrono::milliseconds>(
          std::max(until - SteadyClock::now(), SteadyClock::duration(0))));
    while (SteadyClock::now() < until);
  }

  void ForgetAnswers() { Answers_.clear(); }
  /// What is awaited does not come any more.
  void CutOff() { OldestID_ = LastID_ + 1; }
  unsigned DriveID() const { return DriveID_; }

 private:
  std::map<unsigned, GateAnswer> Answers_;
  unsigned LastID_, DriveID_ = 0, OldestID_ = 0;
};

/// On a WebSocket, as the page in a browser. It is told of the health of all cameras meanwhile.
class LiveClient final : public MessageClient {
 public:
  LiveClient(const Place& place, std::vector<Station*> stations, unsigned seed)
      : MessageClient(place, std::move(stations), seed), Port_(place.Gate) {
    Open();
  }

 protected:
  void Send(const std::string& camera, const std::string& word, json body) override {
    body["camera"] = camera;
    body["do"] = word;
    Outgoing_ = body.dump();
    IsSending_ = true;
    Socket_->async_write(asio::buffer(Outgoing_), [this](const auto& error, std::size_t) {
      IsSending_ = false;
      if (error) IsLost_ = true;
    });
    while (IsSending_) Run(1s);
  }
  void Run(std::chrono::milliseconds time) override {
    Context_.restart();
    Context_.run_one_for(time);
    if (!IsLost_) return;
    CutOff();
    Open();
  }
  void Renew(Station& camera, const GateWish&) override {
    if (HasCome(DriveID())) return;
    Send(NameOf(camera), "renew", {{"id", NextID()}});
  }
  bool CanBreak() const override { return true; }
  void Break() override { Open(); }

 private:
  using Stream = beast::websocket::stream<asio::ip::tcp::socket>;

  /// What was open before is cut.
  void Open() {
    if (Socket_) beast::get_lowest_layer(*Socket_).close();
    Context_.restart();
    Context_.run();
    ForgetAnswers();
    IsLost_ = false;
    Inbox_.clear();
    Socket_ = std::make_unique<Stream>(Context_);
    // A page shows what is, not what was: little waits on the way.
    beast::get_lowest_layer(*Socket_).open(asio::ip::tcp::v4());
    beast::get_lowest_layer(*Socket_).set_option(asio::socket_base::receive_buffer_size(128 * 1024));
    beast::get_lowest_layer(*Socket_).connect({asio::ip::address_v4::loopback(), Port_});
    beast::get_lowest_layer(*Socket_).set_option(asio::ip::tcp::no_delay(true));
    Socket_->read_message_max(64 << 20);
    Socket_->handshake("127.0.0.1", "/api/v1/socket");
    // Of all but one camera the page shows no more than its list does; which one is another question.
    Socket_->write(asio::buffer(std::string(R"({"do":"follow","others":"health"})")));
    Read();
  }
  void Read() {
    Socket_->async_read(Inbox_, [this](const auto& error, std::size_t) {
      if (error) {
        IsLost_ = true;
        return;
      }
      const auto text = beast::buffers_to_string(Inbox_.data());
      Inbox_.clear();
      Read();
      if (text.starts_with("{\"camera\":") || text.starts_with("{\"hello\":")) return;
      const auto message = json::parse(text);
      if (!message.contains("id") || !message["id"].is_number()) return;
      if (message.contains("outcome")) Came(message["id"], AnswerOf(message["outcome"]));
      if (message.contains("problem")) Came(message["id"], RefusalOf(message["problem"]));
    });
  }

  const std::uint16_t Port_;
  asio::io_context Context_{1};
  std::unique_ptr<Stream> Socket_;
  beast::flat_buffer Inbox_;
  std::string Outgoing_;
  bool IsSending_ = false, IsLost_ = false;
};

/// At the broker, as an automation.
class MQTTClient final : public MessageClient {
 public:
  MQTTClient(const Place& place, std::vector<Station*> stations, unsigned seed)
      : MessageClient(place, stations, seed), Client_(mosquitto_new(nullptr, true, this), mosquitto_destroy) {
    mosquitto_message_callback_set(Client_.get(),
                                   [](mosquitto*, void* self, const mosquitto_message* message) {
                                     const auto* text = static_cast<const char*>(message->payload);
                                     const auto result = json::parse(text, text + message->payloadlen);
                                     auto& own = *static_cast<MQTTClient*>(self);
                                     if (result.contains("id")) own.Came(result["id"], AnswerOf(result));
                                   });
    mosquitto_int_option(Client_.get(), MOSQ_OPT_TCP_NODELAY, 1);
    if (mosquitto_connect(Client_.get(), "127.0.0.1", place.Broker, 60) != MOSQ_ERR_SUCCESS)
      throw std::runtime_error("the broker is not there");
    for (const auto* station : stations)
      mosquitto_subscribe(Client_.get(), nullptr, ("ptz/" + NameOf(*station) + "/result").c_str(), 1);
  }

 protected:
  void Send(const std::string& camera, const std::string& word, json body) override {
    const auto text = body.dump();
    mosquitto_publish(Client_.get(), nullptr, ("ptz/" + camera + "/set/" + word).c_str(),
                      static_cast<int>(text.size()), text.data(), 1, false);
  }
  void Run(std::chrono::milliseconds time) override {
    if (mosquitto_loop(Client_.get(), static_cast<int>(time.count()), 1) != MOSQ_ERR_SUCCESS)
      throw std::runtime_error("the broker has gone");
  }
  // To renew is to send the same again, which begins another drive where the first was just over: this one
  // could not tell how many it began.
  void Renew(Station&, const GateWish&) override {}
  std::chrono::milliseconds LeaseOfDrives() const override { return 5 * Lease; }

 private:
  std::unique_ptr<mosquitto, decltype(&mosquitto_destroy)> Client_;
};

}  // namespace

std::unique_ptr<GateClient> GateClient::Make(Kind kind, const Place& place, std::vector<Station*> stations,
                                             unsigned seed) {
  switch (kind) {
    case Kind::HTTP:
      return std::make_unique<HTTPClient>(place, std::move(stations), seed);
    case Kind::SOAP:
      return std::make_unique<SOAPClient>(place, std::move(stations), seed);
    case Kind::MQTT:
      return std::make_unique<MQTTClient>(place, std::move(stations), seed);
    case Kind::Live:
      break;
  }
  return std::make_unique<LiveClient>(place, std::move(stations), seed);
}

// Who only looks.

Follower::Follower(std::uint16_t port) : Line_(port) {
  auto* curl = Line_.Handle_->Curl.get();
  curl_easy_setopt(curl, CURLOPT_URL, (Line_.Handle_->Base + "/api/v1/events").c_str());
  curl_easy_setopt(curl, CURLOPT_WRITEDATA, this);
  curl_easy_setopt(
      curl, CURLOPT_WRITEFUNCTION, +[](char* data, std::size_t size, std::size_t count, void* self) {
        static_cast<Follower*>(self)->Read({data, size * count});
        return size * count;
      });
  Thread_ = std::thread([this, curl] {
    curl_easy_perform(curl);
    IsLost_ = !IsEnding_;
  });
}

Follower::~Follower() {
  IsEnding_ = true;
  Line_.Break();
  Thread_.join();
}

void Follower::Read(std::string_view text) {
  const std::lock_guard lock(Mutex_);
  Rest_ += text;
  std::size_t at = 0;
  for (std::size_t end; (end = Rest_.find("\n\n", at)) != std::string::npos; at = end + 2) {
    const auto event = std::string_view(Rest_).substr(at, end - at);
    constexpr std::string_view name = "\"name\":\"", version = "\"version\":";
    const auto where = event.find(name), which = event.rfind(version);
    if (where == event.npos || which == event.npos) continue;
    const auto camera = event.substr(where + name.size());
    auto& known = Versions_[std::string(camera.substr(0, camera.find('"')))];
    const auto digits = event.substr(which + version.size());
    std::from_chars(digits.data(), digits.data() + digits.size(), known);
    ++Events_;
  }
  Rest_.erase(0, at);
}

std::uint64_t Follower::VersionOf(const std::string& camera) const {
  const std::lock_guard lock(Mutex_);
  const auto known = Versions_.find(camera);
  return known == Versions_.end() ? 0 : known->second;
}
