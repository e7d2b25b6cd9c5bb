#include "gateway/api/CameraListing.h"

#include <boost/asio/post.hpp>

#include <optional>
#include <utility>

#include "gateway/wishes/CameraJSON.h"

namespace ptzgate {

namespace {

constexpr std::size_t AtOnce = 16;

}  // namespace

void CameraListing::Make(const Client& client, std::weak_ptr<const void> whom, Done done,
                         const std::set<std::string>& only) {
  Job job{client, std::move(whom), std::move(done)};
  for (const auto& camera : Gate_.CamerasFor(client.User))
    if (only.empty() || only.contains(camera->Name())) job.Names.push_back(camera->Name());
  Jobs_.push_back(std::move(job));
  if (Jobs_.size() == 1) Turn();
}

void CameraListing::Turn() {
  auto& job = Jobs_.front();
  const auto whom = job.Whom.lock();
  for (std::size_t i = 0; whom && i < AtOnce && job.Next < job.Names.size(); ++i) {
    try {
      const auto camera = Gate_.Find(job.Names[job.Next++], job.Client.User);
      job.Texts.push_back(TextOf(CameraJSON(Gate_, *camera, job.Client)));
    } catch (const Refusal&) {
      // It left the site meanwhile, or is not for him any more.
    }
  }
  std::optional<Job> over;
  if (!whom || job.Next == job.Names.size()) {
    over = std::move(job);
    Jobs_.pop_front();
  }
  // Before he is told, who may come for another list at once: there is one turn to come where there are jobs.
  if (!Jobs_.empty())
    boost::asio::post(Gate_.Context(), [this, life = std::weak_ptr(Life_)] {
      if (life.lock()) Turn();
    });
  if (over && whom) over->Then(over->Texts);
}

std::string Joined(const std::vector<std::string>& texts, std::string_view between) {
  std::string joined;
  for (const auto& text : texts) {
    if (!joined.empty()) joined += between;
    joined += text;
  }
  return joined;
}

}  // namespace ptzgate
