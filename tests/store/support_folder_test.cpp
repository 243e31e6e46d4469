#include <gtest/gtest.h>

#include <map>

#include "store/support_folder.h"

namespace vg {
namespace {

EnvironmentLookup fakeEnvironment(std::map<std::string, std::string> values) {
  return [values = std::move(values)](std::string_view name) -> std::optional<std::string> {
    auto it = values.find(std::string(name));
    if (it == values.end()) return std::nullopt;
    return it->second;
  };
}

TEST(SupportFolder, FollowsTheOverrideThenXdgThenHome) {
  EXPECT_EQ(supportFolder(fakeEnvironment({{"VERDANTGLASS_DATA_DIR", "/data/vg"},
                                           {"XDG_DATA_HOME", "/xdg"},
                                           {"HOME", "/home/ann"}})),
            "/data/vg");
  EXPECT_EQ(supportFolder(fakeEnvironment({{"XDG_DATA_HOME", "/xdg"}, {"HOME", "/home/ann"}})),
            "/xdg/Verdantglass");
  EXPECT_EQ(supportFolder(fakeEnvironment({{"HOME", "/home/ann"}})),
            "/home/ann/.local/share/Verdantglass");
  EXPECT_EQ(editsFolder(fakeEnvironment({{"HOME", "/home/ann"}})),
            "/home/ann/.local/share/Verdantglass/Edits");
}

TEST(SupportFolder, IgnoresEmptyAndRelativeValues) {
  EXPECT_EQ(supportFolder(fakeEnvironment({{"VERDANTGLASS_DATA_DIR", ""},
                                           {"XDG_DATA_HOME", "relative/share"},
                                           {"HOME", "/home/ann"}})),
            "/home/ann/.local/share/Verdantglass");
  // Without HOME the account's home folder is used; the result is absolute.
  EXPECT_TRUE(supportFolder(fakeEnvironment({{"HOME", ""}})).is_absolute());
}

}  // namespace
}  // namespace vg
