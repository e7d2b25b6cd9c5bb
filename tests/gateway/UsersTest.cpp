#include "gateway/core/Users.h"

#include <gtest/gtest.h>

#include <boost/asio/io_context.hpp>

#include <cstdlib>
#include <filesystem>
#include <fstream>

#include "gateway/core/Logins.h"
#include "gateway/core/PresetNames.h"

namespace ptzgate {
namespace {

using Verdict = Logins::Verdict;

TEST(Users, HaveTheFurthestOfTheirRoles) {
  const Users users(
      {{.Name = "anna", .Priority = 5, .Everywhere = Role::Viewer, .Groups = {{"yard", Role::Operator}}},
       {.Name = "bert", .Everywhere = Role::Operator, .Groups = {{"yard", Role::Viewer}}},
       {.Name = "carl", .Groups = {{"door", Role::Administrator}}}},
      {{"yard", {"yard-*", "gate"}}, {"door", {"*door*"}}});
  const struct {
    const char *User, *Camera;
    Role Is;
  } rows[] = {
      {"anna", "gate", Role::Operator},
      {"anna", "hall", Role::Viewer},
      {"bert", "yard-2", Role::Operator},
      {"carl", "gate", Role::None},
      {"carl", "backdoor2", Role::Administrator},
      {"Anna", "gate", Role::None},
      {"", "gate", Role::None},
  };
  for (const auto& row : rows)
    EXPECT_EQ(users.RoleOf(row.User, row.Camera), row.Is) << row.User << row.Camera;
  EXPECT_FALSE(users.IsAdministrator("carl"));
  EXPECT_EQ(users.PriorityOf("anna"), 5);
  EXPECT_EQ(Users().RoleOf("", "gate"), Role::Administrator);
  EXPECT_TRUE(Users().IsAdministrator(""));
}

TEST(Users, MatchPatterns) {
  const struct {
    const char *Pattern, *Text;
    bool Matches;
  } rows[] = {
      {"gate", "gate", true},     {"gate", "gate2", false},  {"", "", true},       {"*", "", true},
      {"a*b*c", "a-b-b-c", true}, {"a*b*c", "a-c-b", false}, {"*ab", "aab", true}, {"a**", "a", true},
  };
  for (const auto& row : rows)
    EXPECT_EQ(Matches(row.Pattern, row.Text), row.Matches) << row.Pattern << " " << row.Text;
}

class LoginsTest : public testing::Test {
 protected:
  /// What came of a try, once all that is under way is done.
  Verdict Check(const std::string& user, const std::string& password, const std::string& address) {
    auto verdict = Verdict::Slowed;
    Logins_.Check(user, password, address, [&](Verdict told) { verdict = told; });
    Finish();
    return verdict;
  }
  void Finish() {
    Context_.restart();
    Context_.run();
  }
  void Fail(int times, const std::string& user, const std::string& address) {
    for (int i = 0; i < times; ++i) Logins_.Note(user, address, false);
  }

  boost::asio::io_context Context_;
  Users Users_{{{.Name = "anna", .PasswordHash = HashOf("right"), .Everywhere = Role::Viewer},
                {.Name = "onvif", .ONVIFSecret = "right"}},
               {}};
  Logins Logins_{Context_, [this]() -> const Users& { return Users_; }};
};

TEST_F(LoginsTest, KnowARightPassword) {
  EXPECT_EQ(Check("anna", "right", "10.0.0.1"), Verdict::Right);
  EXPECT_EQ(Check("anna", "Right", "10.0.0.1"), Verdict::Wrong);
  EXPECT_EQ(Check("Anna", "right", "10.0.0.1"), Verdict::Wrong);
  EXPECT_EQ(Check("onvif", "right", "10.0.0.1"), Verdict::Wrong);
  EXPECT_EQ(Check("anna", "", "10.0.0.1"), Verdict::Wrong);

  // After the users changed it is worked out anew.
  Users_ = Users({{.Name = "anna", .PasswordHash = HashOf("new")}}, {});
  Logins_.Forget();
  EXPECT_EQ(Check("anna", "right", "10.0.0.1"), Verdict::Wrong);
  EXPECT_FALSE(IsHash("right"));
}

TEST_F(LoginsTest, SlowWhoeverGuesses) {
  EXPECT_EQ(Check("anna", "right", "10.0.0.1"), Verdict::Right);
  EXPECT_EQ(Check("anna", "right", "fd00:1::1"), Verdict::Right);

  // By many at once, of which none is known to be wrong yet.
  std::size_t slowed = 0;
  for (int i = 0; i < 20; ++i)
    Logins_.Check("anna", std::to_string(i), "10.0.0.2",
                  [&](Verdict told) { slowed += told == Verdict::Slowed; });
  Finish();
  EXPECT_EQ(slowed, 15U);

  // By many addresses of one network, and by many addresses for one user.
  Fail(20, "bert", "fd00::1");
  EXPECT_EQ(Check("anna", "right", "fd00::2:2"), Verdict::Slowed);
  for (int i = 0; i < 20; ++i) Fail(1, "anna", "10.1.0." + std::to_string(i));
  EXPECT_EQ(Check("anna", "right", "10.0.0.3"), Verdict::Slowed);
  EXPECT_FALSE(Logins_.MayTry("anna", "10.0.0.3"));
  EXPECT_TRUE(Logins_.MayTry("onvif", "10.0.0.3"));

  // Where anna was before she still gets in, also where others guess, who do not learn her password there.
  EXPECT_TRUE(Logins_.MayTry("anna", "fd00:1::2"));
  Fail(20, "carl", "10.0.0.1");
  EXPECT_EQ(Check("anna", "right", "10.0.0.1"), Verdict::Right);
  for (int i = 0; i < 20; ++i) EXPECT_EQ(Check("anna", std::to_string(i), "10.0.0.1"), Verdict::Slowed);
  EXPECT_EQ(Check("anna", "right", "10.0.0.1"), Verdict::Slowed);
}

TEST_F(LoginsTest, AskOnceForManyOfOnePassword) {
  std::size_t right = 0;
  for (int i = 0; i < 50; ++i)
    Logins_.Check("anna", "right", "10.0.0.1", [&](Verdict told) { right += told == Verdict::Right; });
  EXPECT_EQ(right, 0U);
  Finish();
  EXPECT_EQ(right, 50U);
}

TEST(Logins, TellNobodyOnceTheyAreGone) {
  boost::asio::io_context context;
  const Users users({{.Name = "anna", .PasswordHash = HashOf("right")}}, {});
  bool isTold = false;
  {
    Logins logins(context, [&]() -> const Users& { return users; });
    for (const auto* password : {"right", "wrong"})
      logins.Check("anna", password, "::1", [&](auto) { isTold = true; });
  }
  context.run();
  EXPECT_FALSE(isTold);
}

TEST(PresetNames, AreKept) {
  std::string folder = testing::TempDir() + "names.XXXXXX";
  ASSERT_NE(mkdtemp(folder.data()), nullptr);
  const auto file = std::filesystem::path(folder) / "preset-names.json";
  {
    PresetNames names(folder);
    names.Give("gate", 3, "door");
    names.Give("gate", 0, "\"yard\" ü");
    names.Give("yard", 1, "pond");
    names.TakeAway("yard", 1);
    EXPECT_THROW(names.Give("gate", 3, "\xFF"), std::runtime_error);
  }
  const PresetNames names(folder);
  EXPECT_EQ(names.Of("gate"), (std::map<std::int32_t, std::string>{{0, "\"yard\" ü"}, {3, "door"}}));
  EXPECT_TRUE(names.Of("yard").empty());
  for (const auto* text :
       {"", "[]", "{\"gate\": 3}", "{\"gate\": {\"x\": \"door\"}}", "{\"gate\": {\"1\": 2}}"}) {
    std::ofstream(file) << text;
    EXPECT_THROW(PresetNames{folder}, std::runtime_error) << text;
  }
  std::filesystem::remove_all(folder);
}

}  // namespace
}  // namespace ptzgate
