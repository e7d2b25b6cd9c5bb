#include "gateway/core/Logins.h"

#include <boost/asio/executor_work_guard.hpp>
#include <boost/asio/ip/address.hpp>
#include <boost/asio/post.hpp>
#include <boost/asio/thread_pool.hpp>

#include <sodium.h>

#include <algorithm>
#include <array>
#include <cerrno>
#include <chrono>
#include <cstddef>
#include <limits>
#include <map>
#include <optional>
#include <stdexcept>
#include <utility>
#include <vector>

namespace ptzgate {

namespace {

using Clock = std::chrono::steady_clock;
using std::chrono::minutes;
using std::chrono::seconds;

/// Of whatever length a client makes a name or a password, this is what is kept of it; and without the key,
/// which nobody else has, it tells nothing of them.
using Digest = std::array<unsigned char, crypto_generichash_BYTES_MIN>;

void BeginSodium() {
  if (sodium_init() < 0) throw std::runtime_error("libsodium cannot begin: the system has no random numbers");
}

class Digests {
 public:
  Digests() {
    BeginSodium();
    crypto_generichash_keygen(Key_.data());
  }
  Digest Of(std::initializer_list<std::string_view> texts) const {
    crypto_generichash_state state;
    crypto_generichash_init(&state, Key_.data(), Key_.size(), Digest().size());
    for (const auto& text : texts) {
      const auto size = text.size();  // so that no two lists are alike
      crypto_generichash_update(&state, reinterpret_cast<const unsigned char*>(&size), sizeof size);
      crypto_generichash_update(&state, reinterpret_cast<const unsigned char*>(text.data()), size);
    }
    Digest digest;
    crypto_generichash_final(&state, digest.data(), digest.size());
    return digest;
  }

 private:
  std::array<unsigned char, crypto_generichash_KEYBYTES> Key_{};
};

/// Whoever has one IPv6 address has the 2^64 of its network.
std::string NetworkOf(const std::string& text) {
  boost::system::error_code none;
  const auto address = boost::asio::ip::make_address(text, none);
  if (none || !address.is_v6()) return text;
  const auto v6 = address.to_v6();
  if (v6.is_v4_mapped()) return boost::asio::ip::make_address_v4(boost::asio::ip::v4_mapped, v6).to_string();
  const auto bytes = v6.to_bytes();
  return {bytes.begin(), bytes.begin() + 8};
}

/// Things by digest, at most so many: then the one goes that was used longest ago.
template <typename Value>
class Table {
 public:
  explicit Table(std::size_t most) : Most_(most) {}

  Value* Find(const Digest& digest) {
    const auto row = Rows_.find(digest);
    return row == Rows_.end() ? nullptr : &row->second.first;
  }
  Value& Use(const Digest& digest, Clock::time_point now) {
    if (!Rows_.contains(digest) && Rows_.size() >= Most_)
      Rows_.erase(std::ranges::min_element(Rows_, {}, [](const auto& row) { return row.second.second; }));
    auto& [value, used] = Rows_[digest];
    used = now;
    return value;
  }
  void Erase(const Digest& digest) { Rows_.erase(digest); }
  void Clear() { Rows_.clear(); }

 private:
  const std::size_t Most_;
  std::map<Digest, std::pair<Value, Clock::time_point>> Rows_;
};

/// Whose tries failed lately, and how long further ones of theirs wait.
class Slowing {
 public:
  /// `free`: how many may fail before that.
  Slowing(std::int32_t free, std::size_t most) : Free_(free), Failures_(most) {}

  bool MayTry(const Digest& who, Clock::time_point now) {
    const auto* failures = Failures_.Find(who);
    return failures == nullptr || failures->Count < Free_ || now >= failures->Last + PauseAfter(*failures);
  }
  void Failed(const Digest& who, Clock::time_point now) {
    auto& failures = Failures_.Use(who, now);
    if (now >= failures.Last + Forgotten) failures.Count = 0;
    failures = {std::min(failures.Count, Most) + 1, now};
  }
  /// One that was counted as failed before it was known did not.
  void TakeBack(const Digest& who) {
    if (auto* failures = Failures_.Find(who); failures != nullptr && failures->Count > 0) --failures->Count;
  }

 private:
  struct Failures {
    std::int32_t Count = 0;
    Clock::time_point Last;
  };
  static constexpr std::int32_t Most = 1000;
  static constexpr minutes Forgotten{15};

  seconds PauseAfter(const Failures& failures) const {
    constexpr seconds longest{30};
    return std::min(longest, seconds(1 << std::min(failures.Count - Free_, 5)));
  }

  const std::int32_t Free_;
  Table<Failures> Failures_;
};

}  // namespace

std::string HashOf(const std::string& password) {
  BeginSodium();
  char hash[crypto_pwhash_STRBYTES];
  if (crypto_pwhash_str_alg(hash, password.data(), password.size(), crypto_pwhash_OPSLIMIT_INTERACTIVE,
                            crypto_pwhash_MEMLIMIT_INTERACTIVE, crypto_pwhash_ALG_ARGON2ID13) != 0)
    throw std::runtime_error("the password's hash cannot be made: there is no memory for it");
  return hash;
}

bool IsHash(const std::string& text) {
  return text.starts_with(crypto_pwhash_argon2id_STRPREFIX) &&
         crypto_pwhash_str_needs_rehash(text.c_str(), crypto_pwhash_OPSLIMIT_INTERACTIVE,
                                        crypto_pwhash_MEMLIMIT_INTERACTIVE) >= 0;
}

struct Logins::State : std::enable_shared_from_this<State> {
  using Told = std::function<void(Verdict)>;

  /// A user at an address where his password was right before. There he is not slowed by what others do
  /// elsewhere, or they could lock him out.
  struct Place {
    Digest Password{};
    Clock::time_point KnownUntil;  ///< that this is his password
    std::int32_t Mistakes = 0;     ///< since it was right
  };
  struct Waiting {
    std::vector<Told> Told_;
    std::size_t Generation = 0;
  };
  /// Of one try.
  struct Try {
    Digest User, Address, Place;
    bool IsUser = false;  ///< there is one of that name
  };

  State(boost::asio::io_context& context, std::function<const Users&()> users)
      : Context(context), UsersNow(std::move(users)) {}

  Try TryOf(const std::string& user, const std::string& address) const {
    const auto network = NetworkOf(address);
    return {Digests_.Of({user}), Digests_.Of({network}), Digests_.Of({user, network}),
            UsersNow().Find(user) != nullptr};
  }
  Slowing& ByUser(const Try& of) { return of.IsUser ? OfUsers : OfStrangers; }

  bool MayTry(const Try& of) {
    const auto now = Clock::now();
    return OfAddresses.MayTry(of.Address, now) &&
           (Places.Find(of.Place) != nullptr || ByUser(of).MayTry(of.User, now));
  }
  void CountFailure(const Try& of) {
    const auto now = Clock::now();
    OfAddresses.Failed(of.Address, now);
    ByUser(of).Failed(of.User, now);
  }
  void TakeBackFailure(const Try& of) {
    OfAddresses.TakeBack(of.Address);
    ByUser(of).TakeBack(of.User);
  }

  bool IsRemembered(const Try& of, const Digest& password) {
    constexpr std::int32_t mostMistakes = 10;
    const auto now = Clock::now();
    auto* place = Places.Find(of.Place);
    if (place == nullptr || now >= place->KnownUntil) return false;
    if (place->Password != password) {
      // It is looked at without slowing, so nobody may guess here for long.
      if (++place->Mistakes >= mostMistakes) place->KnownUntil = now;
      return false;
    }
    Places.Use(of.Place, now).KnownUntil = now + Remembered;
    return true;
  }

  void Check(const std::string& user, const std::string& password, const std::string& address, Told told);
  void Checked(const Try& of, const Digest& password, Verdict verdict);

  static constexpr minutes Remembered{5};

  boost::asio::io_context& Context;
  const std::function<const Users&()> UsersNow;
  const Digests Digests_;
  Slowing OfAddresses{5, 4096};
  Slowing OfUsers{10, std::numeric_limits<std::size_t>::max()}, OfStrangers{10, 4096};
  Table<Place> Places{4096};
  std::map<Digest, Waiting> Queue;  ///< by the digest of all of a try
  std::size_t Generation = 0;       ///< counts changes of users
  bool IsOver = false;
  /// Of one thread, once there is something to check. At its end what has not begun never does.
  std::optional<boost::asio::thread_pool> Worker;
};

void Logins::State::Check(const std::string& user, const std::string& password, const std::string& address,
                          Told told) {
  const auto of = TryOf(user, address);
  const auto digest = Digests_.Of({user, password, NetworkOf(address)});
  if (IsRemembered(of, digest)) return told(Verdict::Right);
  // A browser asks for many things at once, with the same password.
  if (const auto same = Queue.find(digest); same != Queue.end() && same->second.Generation == Generation) {
    same->second.Told_.push_back(std::move(told));
    return;
  }
  // Strangers are not to fill the queue for those whom it knows.
  const std::size_t most = Places.Find(of.Place) != nullptr ? 64 : 32;
  if (Queue.contains(digest) || Queue.size() >= most || !MayTry(of)) return told(Verdict::Slowed);

  const auto& users = UsersNow();
  const auto* known = users.Find(user);
  std::string hash = known != nullptr ? known->PasswordHash : "";
  const bool mayLogIn = !hash.empty();
  // Nobody is to learn from the time it takes who there is.
  if (!mayLogIn)
    for (const auto& other : users.All())
      if (!other.PasswordHash.empty()) hash = other.PasswordHash;
  // Counted at once, since many may be sent before the first is known to be wrong.
  CountFailure(of);
  if (hash.empty()) return told(Verdict::Wrong);

  auto& waiting = Queue[digest];
  waiting.Told_.push_back(std::move(told));
  waiting.Generation = Generation;
  if (!Worker) Worker.emplace(1);
  boost::asio::post(*Worker, [weak = weak_from_this(), context = boost::asio::make_work_guard(Context), hash,
                              mayLogIn, password, of, digest] {
    errno = 0;
    const bool isAlike = crypto_pwhash_str_verify(hash.c_str(), password.data(), password.size()) == 0;
    // It says so of a wrong password; there may also have been no memory to find out.
    const auto verdict = isAlike && mayLogIn          ? Verdict::Right
                         : isAlike || errno == EINVAL ? Verdict::Wrong
                                                      : Verdict::Slowed;
    boost::asio::post(context.get_executor(), [weak, of, digest, verdict] {
      if (const auto state = weak.lock()) state->Checked(of, digest, verdict);
    });
  });
}

void Logins::State::Checked(const Try& of, const Digest& password, Verdict verdict) {
  const auto waiting = std::move(Queue.extract(password).mapped());
  // Users changed meanwhile, so what it was checked against may be nobody's.
  if (waiting.Generation != Generation) verdict = Verdict::Slowed;
  if (verdict != Verdict::Wrong) TakeBackFailure(of);
  if (verdict == Verdict::Right) {
    const auto now = Clock::now();
    Places.Use(of.Place, now) = {password, now + Remembered};
  }
  for (const auto& told : waiting.Told_)
    if (!IsOver) told(verdict);
}

Logins::Logins(boost::asio::io_context& context, std::function<const Users&()> users)
    : State_(std::make_shared<State>(context, std::move(users))) {}

Logins::~Logins() { State_->IsOver = true; }

void Logins::Check(const std::string& user, const std::string& password, const std::string& address,
                   std::function<void(Verdict)> told) {
  State_->Check(user, password, address, std::move(told));
}

bool Logins::MayTry(const std::string& user, const std::string& address) {
  return State_->MayTry(State_->TryOf(user, address));
}

void Logins::Note(const std::string& user, const std::string& address, bool isRight) {
  const auto of = State_->TryOf(user, address);
  if (isRight)
    State_->Places.Use(of.Place, Clock::now());
  else
    State_->CountFailure(of);
}

void Logins::Forget() {
  State_->Places.Clear();
  ++State_->Generation;
}

}  // namespace ptzgate
