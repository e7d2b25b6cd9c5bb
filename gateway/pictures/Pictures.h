#pragma once

#include <boost/asio/thread_pool.hpp>

#include <chrono>
#include <map>
#include <memory>
#include <string>
#include <vector>

#include "gateway/access/HTTPAccess.h"
#include "gateway/core/Gate.h"
#include "gateway/pictures/Fetch.h"
#include "gateway/web/Call.h"

namespace ptzgate {

/// Cameras' own pictures, fetched by the gateway, so that no browser learns where they are and how to log in
/// there: `/api/v1/cameras/{camera}/snapshot` and `/film`. A film is fetched once for all who look at it, as
/// long as somebody does. Used on the gateway's thread.
class Pictures {
 public:
  Pictures(Gate& gate, HTTPAccess& access);
  ~Pictures();
  Pictures(const Pictures&) = delete;
  Pictures& operator=(const Pictures&) = delete;

  static bool Has(const std::string& path);
  void Handle(const std::shared_ptr<Call>& call);

 private:
  struct Snapshot;
  struct Film;

  void Serve(const std::shared_ptr<Call>& call, const Client& client);
  void ServeSnapshot(const std::shared_ptr<Call>& call, const std::string& camera,
                     const PictureSettings& settings);
  void ServeFilm(const std::shared_ptr<Call>& call, const Client& client, const std::string& camera,
                 const PictureSettings& settings);
  /// Ends films that nobody may see any more, or that come from elsewhere now.
  void CheckFilms();

  Gate& Gate_;
  HTTPAccess& Access_;
  std::map<std::string, std::shared_ptr<Snapshot>> Snapshots_;  ///< by camera
  std::map<std::string, std::shared_ptr<Film>> Films_;
  std::shared_ptr<int> Life_ = std::make_shared<int>();
  std::unique_ptr<boost::asio::thread_pool> Fetching_;
};

}  // namespace ptzgate
