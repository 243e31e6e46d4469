#include <gtest/gtest.h>

#include <unordered_set>

#include "model/uuid.h"

namespace vg {
namespace {

TEST(Uuid, TextFormRoundTripsUpperCase) {
  const auto id = Uuid::parse("123e4567-e89b-42d3-a456-426614174000");
  ASSERT_TRUE(id);
  EXPECT_EQ(id->toString(), "123E4567-E89B-42D3-A456-426614174000");
  EXPECT_EQ(id->bytes[0], 0x12);
  EXPECT_EQ(id->bytes[15], 0x00);
  EXPECT_EQ(Uuid::parse(id->toString()), id);
  EXPECT_EQ(Uuid::parse("123E4567-e89b-42D3-A456-426614174000"), id);
}

TEST(Uuid, RejectsAnythingButTheHyphenatedForm) {
  for (const char* bad :
       {"", "123e4567e89b42d3a456426614174000", "{123e4567-e89b-42d3-a456-426614174000}",
        "123e4567-e89b-42d3-a456-42661417400", "123e4567-e89b-42d3-a456-4266141740000",
        "123e4567-e89b-42d3-a456_426614174000", "g23e4567-e89b-42d3-a456-426614174000",
        "123e4567-e89b-42d3-a4564-26614174000"}) {
    EXPECT_FALSE(Uuid::parse(bad)) << bad;
  }
}

TEST(Uuid, RandomIsVersionFourAndUnique) {
  std::unordered_set<Uuid> seen;
  for (int i = 0; i < 1000; ++i) {
    const Uuid u = Uuid::random();
    EXPECT_EQ(u.bytes[6] >> 4, 4);
    EXPECT_EQ(u.bytes[8] >> 6, 2);
    EXPECT_EQ(u.toString()[14], '4');
    EXPECT_TRUE(seen.insert(u).second);
  }
}

}  // namespace
}  // namespace vg
