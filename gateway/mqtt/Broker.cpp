#include "gateway/mqtt/Broker.h"

#include <boost/asio/post.hpp>

#include <mosquitto.h>

#include <algorithm>
#include <cerrno>
#include <condition_variable>
#include <csignal>
#include <mutex>
#include <new>
#include <span>
#include <system_error>
#include <thread>
#include <utility>

namespace ptzgate {

namespace {

constexpr int KeepAlive = 5;    // seconds; a broker that vanished is noticed after two of these at most
constexpr int LoopPace = 1000;  // milliseconds
constexpr int AtLeastOnce = 1;
constexpr int Refused = 0x80;
/// So many messages wait for the gateway's thread; then the broker does.
constexpr std::size_t MostWaiting = 1000;
/// Of QoS 1 that the broker has not acknowledged yet: any number.
constexpr int MostUnacknowledged = 65535;
/// How long the broker may take for what was published last.
constexpr std::chrono::seconds TimeToLeave(2);

std::string TextOf(int error) {
  if (error == MOSQ_ERR_KEEPALIVE) return "it does not answer";  // which the library has no text for
  return error == MOSQ_ERR_ERRNO ? std::generic_category().message(errno) : mosquitto_strerror(error);
}

}  // namespace

/// What the gateway's thread and the connection's share. The latter may outlive the `Broker` while it
/// connects.
struct Broker::State : std::enable_shared_from_this<State> {
  State(boost::asio::io_context& context, const MQTTSettings& settings, std::size_t longest,
        std::shared_future<void> after, Broker::Callbacks callbacks)
      : Host(settings.Host),
        Port(settings.Port),
        Longest(longest),
        After(std::move(after)),
        Context(context),
        Callbacks(std::move(callbacks)) {
    static const int ready = mosquitto_lib_init();
    if (ready != MOSQ_ERR_SUCCESS) throw std::bad_alloc();
    Client = mosquitto_new(settings.Name.c_str(), true, this);
    if (Client == nullptr) throw std::bad_alloc();
  }
  ~State() { mosquitto_destroy(Client); }

  void Run() {
    // Signals are for other threads, and a lost connection is told as an error.
    sigset_t all;
    sigfillset(&all);
    pthread_sigmask(SIG_SETMASK, &all, nullptr);
    if (After.valid()) After.wait_for(TimeToLeave);
    if (WhyNot.empty()) {
      auto error = mosquitto_connect(Client, Host.c_str(), Port, KeepAlive);
      // Who left before there was a connection could not end it.
      if (error == MOSQ_ERR_SUCCESS && HasLeft()) mosquitto_disconnect(Client);
      while (error == MOSQ_ERR_SUCCESS) {
        error = mosquitto_loop(Client, LoopPace, 1);
        if (error == MOSQ_ERR_SUCCESS && HasLeft()) mosquitto_disconnect(Client);
      }
      if (WhyNot.empty()) WhyNot = TextOf(error);
    }
    Post([](State& state) {
      const auto gone = std::exchange(state.Callbacks.Gone, {});
      gone(state.WhyNot);
    });
    Ended.set_value();
  }

  /// Whether all is said, too: the broker may not read what it has not acknowledged when the connection is
  /// cut.
  bool HasLeft() {
    const std::lock_guard lock(Mutex);
    return Left && (Unacknowledged == 0 || std::chrono::steady_clock::now() >= LeftUntil);
  }

  /// Nothing is called any more from here on.
  void Leave() {
    {
      const std::lock_guard lock(Mutex);
      if (!std::exchange(Left, true)) LeftUntil = std::chrono::steady_clock::now() + TimeToLeave;
      Changed.notify_all();
    }
    if (HasLeft()) mosquitto_disconnect(Client);
  }

  void Publish(const std::string& topic, const std::string& payload, bool isRetained) {
    Count(1);
    if (mosquitto_publish(Client, nullptr, topic.c_str(), static_cast<int>(payload.size()), payload.data(),
                          AtLeastOnce, isRetained) != MOSQ_ERR_SUCCESS)
      Count(-1);
  }

  void Count(int unacknowledged) {
    const std::lock_guard lock(Mutex);
    Unacknowledged += unacknowledged;
  }

  template <typename Work>
  void Post(Work work) {
    std::unique_lock lock(Mutex);
    Changed.wait(lock, [this] { return Left || Waiting < MostWaiting; });
    if (Left) return;
    ++Waiting;
    boost::asio::post(Context, [self = shared_from_this(), work = std::move(work)] {
      {
        const std::lock_guard held(self->Mutex);
        --self->Waiting;
        self->Changed.notify_all();
        if (self->Left) return;
      }
      work(*self);
    });
  }

  /// On the connection's thread.
  void Fail(const std::string& why) {
    if (WhyNot.empty()) WhyNot = why;
    mosquitto_disconnect(Client);
  }

  static void Connected(mosquitto* /*client*/, void* state, int code) {
    auto& self = *static_cast<State*>(state);
    if (code != 0) return self.Fail(mosquitto_connack_string(code));
    self.Post([](State& there) { there.Callbacks.Connected(); });
  }

  static void Published(mosquitto* /*client*/, void* state, int /*message*/) {
    static_cast<State*>(state)->Count(-1);
  }

  static void Came(mosquitto* /*client*/, void* state, const mosquitto_message* message) {
    auto& self = *static_cast<State*>(state);
    const auto size = static_cast<std::size_t>(std::max(message->payloadlen, 0));
    Message came{.Topic = message->topic,
                 .Payload = {},
                 .IsRetained = message->retain,
                 .IsTooLong = size > self.Longest};
    if (size > 0 && !came.IsTooLong) came.Payload.assign(static_cast<const char*>(message->payload), size);
    self.Post([came = std::move(came)](State& there) { there.Callbacks.Came(came); });
  }

  static void Subscribed(mosquitto* /*client*/, void* state, int /*message*/, int count, const int* granted) {
    const std::span all(granted, static_cast<std::size_t>(std::max(count, 0)));
    if (std::ranges::find(all, Refused) != all.end())
      static_cast<State*>(state)->Fail("it lets this gateway not read what is wished there");
  }

  const std::string Host;
  const std::uint16_t Port;
  const std::size_t Longest;
  const std::shared_future<void> After;
  boost::asio::io_context& Context;
  Broker::Callbacks Callbacks;  ///< used on the gateway's thread
  mosquitto* Client = nullptr;
  std::string WhyNot;  ///< of the connection's thread, from its beginning on

  std::mutex Mutex;
  std::condition_variable Changed;
  std::size_t Waiting = 0;
  int Unacknowledged = 0;
  bool Left = false;
  std::chrono::steady_clock::time_point LeftUntil;
  std::promise<void> Ended;
};

Broker::Broker(boost::asio::io_context& context, const MQTTSettings& settings, const ptzd::Login& login,
               const Will& will, std::size_t longest, std::shared_future<void> after, Callbacks callbacks)
    : State_(std::make_shared<State>(context, settings, longest, std::move(after), std::move(callbacks))),
      Ended_(State_->Ended.get_future()) {
  auto* client = State_->Client;
  mosquitto_threaded_set(client, true);
  mosquitto_int_option(client, MOSQ_OPT_SEND_MAXIMUM, MostUnacknowledged);
  // Else what follows an acknowledgement waits for the broker's, 40 ms later.
  mosquitto_int_option(client, MOSQ_OPT_TCP_NODELAY, 1);
  mosquitto_connect_callback_set(client, State::Connected);
  mosquitto_message_callback_set(client, State::Came);
  mosquitto_publish_callback_set(client, State::Published);
  mosquitto_subscribe_callback_set(client, State::Subscribed);
  const auto check = [this](const char* what, int error) {
    if (error != MOSQ_ERR_SUCCESS && State_->WhyNot.empty()) State_->WhyNot = what + TextOf(error);
  };
  check("its last will: ",
        mosquitto_will_set(client, will.Topic.c_str(), static_cast<int>(will.Payload.size()),
                           will.Payload.data(), AtLeastOnce, true));
  if (!login.User.empty())
    check("its login: ", mosquitto_username_pw_set(client, login.User.c_str(), login.Password.c_str()));
  if (!settings.Authorities.empty())
    check("its authorities: ",
          mosquitto_tls_set(client, settings.Authorities.c_str(), nullptr, nullptr, nullptr, nullptr));
  std::thread([state = State_] { state->Run(); }).detach();
}

Broker::~Broker() { End(std::chrono::milliseconds(0)); }

void Broker::Publish(const std::string& topic, const std::string& payload, bool isRetained) {
  State_->Publish(topic, payload, isRetained);
}

void Broker::Subscribe(const std::string& filter) {
  mosquitto_subscribe(State_->Client, nullptr, filter.c_str(), AtLeastOnce);
}

void Broker::Unsubscribe(const std::string& filter) {
  mosquitto_unsubscribe(State_->Client, nullptr, filter.c_str());
}

void Broker::End(std::chrono::milliseconds longest) {
  State_->Leave();
  Ended_.wait_for(longest);
}

}  // namespace ptzgate
