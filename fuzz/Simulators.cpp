// The simulated cameras, each on its own line: sockets for HTTP and TCP, a pseudo-terminal for serial ones.
// The first line of an input is the make and its options as `ptzsim` takes them, and "fault=TEXT" for a fault
// that is read and not set. What follows in that part is the recording of a `replay`; the other parts are
// sent as they are, each on a connection of its own.

#include "simulators/Makes.h"

#include <arpa/inet.h>
#include <fcntl.h>
#include <netinet/in.h>
#include <sys/socket.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <cstdlib>
#include <cstring>
#include <nlohmann/json.hpp>
#include <numeric>
#include <stdexcept>

#include "Scratch.h"
#include "Target.h"
#include "simulators/engine/Make.h"
#include "simulators/engine/Query.h"

namespace ptzd::fuzz {

namespace {

using namespace ptzsim;

constexpr std::size_t MostConnections = 4;

/// Reads options from words as "--head=multi".
class WordShell final : public Shell {
 public:
  explicit WordShell(std::vector<std::string> words) : Words_(std::move(words)) {}

  void Flag(const char* name, bool& into, bool value, const std::string&) override {
    if (std::ranges::find(Words_, name) != Words_.end()) into = value;
  }
  void Number(const char* name, int& into, int least, int most, const std::string&) override {
    For(name, [&](const std::string& word) { into = std::clamp(std::atoi(word.c_str()), least, most); });
  }
  void Text(const char* name, std::string& into, const std::string&) override {
    // Files are ours alone.
    if (std::string_view(name) == "FILE") into = (Scratch::Folder() / "recording.jsonl").string();
  }
  void Word(const char* name, const std::vector<std::string>& words, Take take, const std::string&) override {
    For(name, [&](const std::string& word) {
      if (words.empty() || std::ranges::find(words, word) != words.end()) take(word);
    });
  }
  void Words(const char* name, const std::vector<std::string>& words, Take take,
             const std::string&) override {
    for (const auto& word : ptzsim::Split(Of(name), ','))
      if (words.empty() || std::ranges::find(words, word) != words.end()) take(word);
  }

 private:
  std::string Of(const std::string& name) const {
    for (const auto& word : Words_)
      if (word.starts_with(name + "=")) return word.substr(name.size() + 1);
    return {};
  }
  template <typename Take>
  void For(const std::string& name, const Take& take) const {
    if (const auto word = Of(name); !word.empty()) take(word);
  }

  const std::vector<std::string> Words_;
};

/// Sends all and waits until the camera has closed.
void Send(const std::string& address, std::string_view bytes) {
  const int connection = socket(AF_INET, SOCK_STREAM | SOCK_CLOEXEC, 0);
  sockaddr_in camera{};
  camera.sin_family = AF_INET;
  camera.sin_addr.s_addr = htonl(INADDR_LOOPBACK);
  camera.sin_port =
      htons(static_cast<std::uint16_t>(std::atoi(address.substr(address.find(':') + 1).c_str())));
  if (connect(connection, reinterpret_cast<sockaddr*>(&camera), sizeof camera) != 0)
    Demand(false, "it listens at " + address + ": " + std::strerror(errno));
  send(connection, bytes.data(), bytes.size(), MSG_NOSIGNAL);
  shutdown(connection, SHUT_WR);
  for (char reply[4096]; recv(connection, reply, sizeof reply, 0) > 0;) {
  }
  close(connection);
}

/// Nothing answers on such a line. A frame that the log names shows that all before it has been looked at.
void Write(Simulator& device, const std::string& path, std::string_view bytes) {
  constexpr std::string_view last("\xFF\x01\x00\x07\x00\xFB\x03", 7);
  const auto frames = std::string(bytes).append(16, '\0').append(last);
  const int line = open(path.c_str(), O_RDWR | O_NOCTTY | O_CLOEXEC);
  Demand(line >= 0, "there is a line " + path);
  for (std::string_view rest = frames; !rest.empty();) {
    const auto count = write(line, rest.data(), rest.size());
    Demand(count > 0, "the line takes bytes");
    rest.remove_prefix(static_cast<std::size_t>(count));
  }
  for (std::size_t count = 1;; ++count) {
    Demand(device.Log().WaitForRequests(count), "every frame is looked at");
    const auto requests = device.Log().Requests();
    if (requests.back().Raw == last) break;
    count = requests.size();
  }
  close(line);
}

const Make& MakeNamed(std::string_view name) {
  const auto& makes = Makes();
  for (const auto* make : makes)
    if (make->Name == name) return *make;
  return *makes[std::accumulate(name.begin(), name.end(), std::size_t{0}) % makes.size()];
}

}  // namespace

void Simulators(std::string_view input) {
  const auto parts = PartsOf(input);
  const auto end = std::min(parts.front().find('\n'), parts.front().size());
  const auto words = ptzsim::Split(std::string(parts.front().substr(0, end)), ' ');
  const auto& make = MakeNamed(words.front());
  Scratch::Write("recording.jsonl", parts.front().substr(std::min(end + 1, parts.front().size())));

  std::unique_ptr<Simulator> device;
  try {
    for (const auto& word : words)
      if (word.starts_with("fault=")) ParseFault(word.substr(6));
    WordShell shell(words);
    device = make.Declare(shell)(0);
  } catch (const std::invalid_argument&) {
    return;
  } catch (const std::runtime_error&) {
    return;
  }
  const auto addresses = device->Addresses();
  for (std::size_t i = 1; i < parts.size() && i <= MostConnections; ++i)
    if (addresses[0].starts_with('/'))
      Write(*device, addresses[0], parts[i]);
    else
      Send(addresses[(i - 1) % addresses.size()], parts[i]);
  // As ptzsim prints them.
  for (const auto& told : {device->State(), device->Log().JSON()})
    told.dump(2, ' ', true, nlohmann::json::error_handler_t::replace);
}

}  // namespace ptzd::fuzz
