#include <ptzd/PropertyBag.h>

#include <gtest/gtest.h>

#include <random>

#include "support/Errors.h"

namespace ptzd {
namespace {

using test::ErrorOf;
using test::NumberOf;

PropertyBag Reopened(const PropertyBag& bag) {
  PropertyBag other;
  other.Contents(bag.Contents());
  return other;
}

TEST(PropertyBag, ReadsTheSameOptionsByType) {
  PropertyBag bag;
  bag.WriteProperty("Port", std::string("2"));
  bag.WriteProperty("Address", std::string("10.0.0.5\xC3\xA4"));
  bag.WriteProperty("Baud", 70000);
  bag.WriteProperty("Reset", std::string("true"));
  bag.WriteProperty("ZoomStep", 2.5);
  bag.WriteProperty("Half", 0.1F);
  bag.WriteProperty("Empty", {});
  bag.WriteProperty("Name", std::string("door"));
  const auto read = Reopened(bag);

  EXPECT_EQ(read.Long("Port", 0), 2);
  EXPECT_EQ(read.Text("Address"), "10.0.0.5\xC3\xA4");
  EXPECT_EQ(read.Long("Baud", 0), 70000);
  EXPECT_EQ(read.Text("Baud"), "70000");
  EXPECT_TRUE(read.Boolean("Reset", false));
  EXPECT_EQ(read.Long("ZoomStep", 0), 2);
  EXPECT_EQ(read.Single("ZoomStep", 0), 2.5F);
  EXPECT_EQ(read.Text("Half"), "0.1");
  EXPECT_EQ(read.Long("Empty", 7), 0) << "an empty value is there";
  EXPECT_EQ(read.Long("port", 7), 7) << "names compare exactly";
  EXPECT_TRUE(read.Boolean("Absent", true));
  EXPECT_EQ(read.Text("Absent", "0"), "0");
  EXPECT_EQ(read.ReadProperty("Absent", 7), Variant(7));
  EXPECT_EQ(read.ReadProperty("Baud", 7), Variant(70000));

  EXPECT_EQ(ErrorOf([&] { read.Long("Name", 0); }), "13 Type mismatch: option Name");
  EXPECT_EQ(ErrorOf([&] { read.Integer("Baud", 0); }), "6 Overflow: option Baud");
  EXPECT_EQ(NumberOf([&] { read.Boolean("Name", false); }), 13);
  EXPECT_EQ(NumberOf([&] { bag.WriteProperty("Bytes", Bytes{1}); }), 13);
  EXPECT_EQ(NumberOf([&] { bag.WriteProperty("", 1); }), 5);
}

TEST(PropertyBag, FormatIsFixed) {
  PropertyBag bag;
  bag.WriteProperty("P", 258);
  bag.WriteProperty("P", 513);  // replaced
  bag.WriteProperty("R", true);
  const Bytes expected = {'P', 'T', 'Z', 'B', 1, 0, 2, 0, 1, 0,   0, 0, 'P',
                          2,   1,   2,   0,   0, 1, 0, 0, 0, 'R', 1, 1};
  EXPECT_EQ(bag.Contents(), expected);
}

TEST(PropertyBag, RefusesWhatIsNoBagAndKeepsWhatItHad) {
  PropertyBag source;
  source.WriteProperty("Address", std::string("camera1"));
  source.WriteProperty("Port", 2);
  const auto good = source.Contents();

  PropertyBag bag;
  bag.WriteProperty("Kept", 1);
  for (std::size_t length = 0; length < good.size(); ++length)
    EXPECT_EQ(NumberOf([&] { bag.Contents(std::span(good).first(length)); }), 5) << "cut at " << length;
  for (const int version : {0, 2}) {
    auto other = good;
    other[4] = static_cast<std::uint8_t>(version);
    EXPECT_EQ(ErrorOf([&] { bag.Contents(other); }),
              "5 The connection options cannot be read: they have format version " + std::to_string(version) +
                  ", this library reads version 1");
  }
  auto trailing = good;
  trailing.push_back(0);
  EXPECT_EQ(ErrorOf([&] { bag.Contents(trailing); }),
            "5 The connection options cannot be read: bytes follow the last value");

  // Whatever the bytes are, the bag either reads them whole or stays as it was.
  std::mt19937 random(1);
  for (int round = 0; round < 20000; ++round) {
    auto bytes = good;
    for (int flips = 0; flips < 3; ++flips)
      bytes[4 + random() % (bytes.size() - 4)] = static_cast<std::uint8_t>(random());
    PropertyBag other = bag;
    if (NumberOf([&] { other.Contents(bytes); }) != 0) {
      EXPECT_EQ(other.Values(), bag.Values());
    }
  }
  EXPECT_EQ(bag.Long("Kept", 0), 1);
}

}  // namespace
}  // namespace ptzd
