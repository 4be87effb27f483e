// Whole programs in C with the real service: the one in the document, and the example.
#include <stdio.h>

#include "component.h"

namespace {

constexpr char kPublished[] = R"({"system":{"status":{"systemTemperature":66}}})";

class CProgram : public RunningService {};

std::string contents(const std::string& path) {
    std::stringstream text;
    text << std::ifstream(path).rdbuf();
    return text.str();
}

}  // namespace

TEST_F(CProgram, OfTheDocumentPrintsWhatTheDocumentSays) {
    FILE* const program = popen(QO_DOCUMENT_PROGRAM, "r");
    ASSERT_NE(program, nullptr);
    char line[512] = "";
    EXPECT_NE(fgets(line, sizeof line, program), nullptr);
    EXPECT_EQ(pclose(program), 0);
    const std::string printed(line, strcspn(line, "\n"));
    EXPECT_THAT(contents(QO_DOCUMENT), testing::HasSubstr("It prints `" + printed + "`"));
}

TEST_F(CProgram, StatusWatchPublishesItsInputAndShowsWhatOthersPublish) {
    Component other(service(), QO_CMPID_TCOMP);
    ASSERT_EQ(other.api().subscribe(other.id(), "/system/status", false), 0);
    const std::string output = events().scratch() + "status_watch";
    FILE* const program = popen((QO_STATUS_WATCH " > " + output).c_str(), "w");
    ASSERT_NE(program, nullptr);
    fputs("71.5\n", program);
    fflush(program);
    EXPECT_EQ(other.next_message(), R"({"system":{"status":{"systemTemperature":71.5}}})");
    EXPECT_EQ(other.api().publish(other.id(), kPublished), 0);
    EXPECT_EQ(other.api().exit_request(other.id(), "true"), 0);
    EXPECT_TRUE(service().wait_for_end());
    EXPECT_EQ(pclose(program), 0);
    EXPECT_EQ(contents(output), std::string(kPublished) + "\nexit\n");
}
