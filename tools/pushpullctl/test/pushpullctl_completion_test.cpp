// What bash completes, with the real service.
#include <cstdio>

#include "pushpullctl_run.h"

namespace {

class PushpullctlCompletion : public RunningService {};

/// What bash offers behind these words.
std::string completions(const std::string& words) {
    const std::string script = "PATH=" QO_PROGRAMS ":$PATH; source " QO_COMPLETION "; COMP_WORDS=(pushpullctl " +
                               words + "); COMP_CWORD=$((${#COMP_WORDS[@]} - 1)); _pushpullctl; echo ${COMPREPLY[@]}";
    FILE* const shell = popen(("bash -c '" + script + "'").c_str(), "r");
    std::string offered;
    char piece[4096];
    while (std::fgets(piece, sizeof piece, shell) != nullptr) offered += piece;
    pclose(shell);
    return offered;
}

TEST_F(PushpullctlCompletion, OffersPointersAtEveryLevelFromTheLiveTree) {
    EXPECT_EQ(completions("get /ver"), "/version\n");
    EXPECT_EQ(completions("get /version/sch"), "/version/schemaVersion\n");
    ASSERT_EQ(run_pushpullctl({"set", "/version/mine", R"({"deep":{"er":1}})"}).status, 0);
    EXPECT_EQ(completions("explain /version/mine/deep/"), "/version/mine/deep/er\n");
    EXPECT_EQ(completions("get /nothing/x"), "\n");
    EXPECT_EQ(completions("get --instance -9 /version/"), "\n") << "no such service";
    EXPECT_EQ(completions("tree --si"), "--sizes\n");
}

}  // namespace
