// The JSON and file helpers of the store.
#include "qo_pushpull_utilities.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <sys/socket.h>
#include <sys/stat.h>
#include <sys/un.h>
#include <unistd.h>

#include <ctime>
#include <filesystem>
#include <limits>
#include <sstream>
#include <streambuf>

#include "log_capture.h"
#include "qo_pushpull_json.h"
#include "scratch_directory.h"

namespace {

using ::testing::ElementsAre;
using ::testing::IsEmpty;

QoLogLine error_line(const std::string& text) { return {LOG_ERR, text}; }
QoLogLine debug_line(const std::string& text) { return {LOG_DEBUG, text}; }

// ---- CalcCrc32 ----

TEST(CalcCrc32, OfAnEmptyTextIsAllOnes) { EXPECT_EQ(CalcCrc32(""), 0xFFFFFFFFU); }

TEST(CalcCrc32, OfTheCheckTextHasNoFinalInversion) {
    EXPECT_EQ(CalcCrc32("123456789"), 0x340BC6D9U);
    EXPECT_EQ(~CalcCrc32("123456789"), 0xCBF43926U);
}

TEST(CalcCrc32, TakesBytesFrom0x80UpAsTheir8BitValue) {
    // The usual CRC-32 of the one byte 0xFF is 0xFF000000, of 0x80 0x3FBA6CAD.
    EXPECT_EQ(CalcCrc32("\xFF"), ~0xFF000000U);
    EXPECT_EQ(CalcCrc32("\x80"), ~0x3FBA6CADU);
}

TEST(CalcCrc32, CoversBytesBehindATerminatingZero) {
    EXPECT_NE(CalcCrc32(std::string("a\0b", 3)), CalcCrc32("a"));
    EXPECT_NE(CalcCrc32(std::string("a\0b", 3)), CalcCrc32(std::string("a\0c", 3)));
}

TEST(CalcCrc32, TableHasTheKnownEntries) {
    EXPECT_EQ(QO_PUSHPULL_CRC32_TABLE_04C11DB7[0], 0U);
    EXPECT_EQ(QO_PUSHPULL_CRC32_TABLE_04C11DB7[1], 0x77073096U);
    EXPECT_EQ(QO_PUSHPULL_CRC32_TABLE_04C11DB7[128], 0xEDB88320U);
}

TEST(CalcCrc32, IsThatOfTheTableByteForByteHoweverTheTextIsCut) {
    std::string text;
    for (int i = 0; i < 3000; ++i) text += static_cast<char>(i * i + i / 7);
    for (size_t length : {0U, 1U, 7U, 8U, 9U, 63U, 64U, 65U, 1000U, 3000U}) {
        uint32_t crc = QO_CRC32_START;
        for (size_t at = 0; at < length; ++at)
            crc = QO_PUSHPULL_CRC32_TABLE_04C11DB7[(static_cast<unsigned char>(text[at]) ^ crc) & 0xFFU] ^ (crc >> 8U);
        EXPECT_EQ(CalcCrc32(text.substr(0, length)), crc) << length;
        for (size_t cut = 0; cut <= length; cut += 13) {
            const std::string_view whole(text.data(), length);
            uint32_t in_pieces = qo_crc32_update(QO_CRC32_START, whole.substr(0, cut));
            in_pieces = qo_crc32_update(in_pieces, {});
            EXPECT_EQ(qo_crc32_update(in_pieces, whole.substr(cut)), crc) << length << " cut at " << cut;
        }
    }
}

// ---- DoesFileExist ----

class DoesFileExistTest : public ::testing::Test {
protected:
    QoScratchDirectory scratch_;
};

TEST_F(DoesFileExistTest, TrueForAReadableFileEvenIfEmpty) { EXPECT_TRUE(DoesFileExist(scratch_.write("f", ""))); }

TEST_F(DoesFileExistTest, FalseForAMissingFile) { EXPECT_FALSE(DoesFileExist(scratch_.file("missing"))); }

TEST_F(DoesFileExistTest, FalseForAPathBelowAFile) {
    scratch_.write("f", "");
    EXPECT_FALSE(DoesFileExist(scratch_.file("f/below")));
}

TEST_F(DoesFileExistTest, FalseForADirectoryAlthoughItsStreamOpens) {
    ASSERT_TRUE(std::ifstream(scratch_.path()).is_open());
    EXPECT_FALSE(DoesFileExist(scratch_.path()));
}

TEST_F(DoesFileExistTest, FalseForADanglingLinkAndTrueForALinkToAFile) {
    std::filesystem::create_symlink(scratch_.file("target"), scratch_.file("link"));
    EXPECT_FALSE(DoesFileExist(scratch_.file("link")));
    scratch_.write("target", "");
    EXPECT_TRUE(DoesFileExist(scratch_.file("link")));
}

TEST_F(DoesFileExistTest, FalseForAFifoWithoutWaitingForItsWriter) {
    ASSERT_EQ(mkfifo(scratch_.file("fifo").c_str(), 0600), 0);
    EXPECT_FALSE(DoesFileExist(scratch_.file("fifo")));
    EXPECT_EQ(ParseJsonFile(scratch_.file("fifo")), nullptr);
}

TEST_F(DoesFileExistTest, FalseForASocket) {
    sockaddr_un address{.sun_family = AF_UNIX, .sun_path = {}};
    ASSERT_LT(scratch_.file("socket").size(), sizeof address.sun_path);
    scratch_.file("socket").copy(address.sun_path, sizeof address.sun_path);
    const int socket_descriptor = socket(AF_UNIX, SOCK_DGRAM, 0);
    ASSERT_EQ(bind(socket_descriptor, reinterpret_cast<sockaddr*>(&address), sizeof address), 0);
    EXPECT_FALSE(DoesFileExist(scratch_.file("socket")));
    close(socket_descriptor);
}

// 32-bit boards have C libraries that cannot look at such files.
TEST_F(DoesFileExistTest, AnswersForFilesDatedAfter2038Too) {
    scratch_.write("f", "{}");
    ASSERT_EQ(mkdir(scratch_.file("directory").c_str(), 0700), 0);
    ASSERT_EQ(mkfifo(scratch_.file("fifo").c_str(), 0600), 0);
    for (const char* name : {"f", "directory", "fifo"})
        if (!scratch_.date_in_2040(name)) GTEST_SKIP() << "this disk has no dates after 2038";
    EXPECT_TRUE(DoesFileExist(scratch_.file("f")));
    EXPECT_FALSE(DoesFileExist(scratch_.file("directory")));
    // Opening the FIFO would wait for a writer, so that question is asked last and by a child.
    const auto fifo_exists = [this] {
        alarm(10);
        _exit(DoesFileExist(scratch_.file("fifo")) ? 1 : 0);
    };
    EXPECT_EXIT(fifo_exists(), ::testing::ExitedWithCode(0), "");
}

// Root reads everything, so the question is asked by a child of an ordinary user.
TEST_F(DoesFileExistTest, FalseForAnExistingButUnreadableFile) {
    const std::string path = scratch_.write("secret", "{}");
    ASSERT_EQ(chmod(scratch_.path().c_str(), 0755), 0);
    const auto exists_for_an_ordinary_user = [&path](mode_t mode) {
        chmod(path.c_str(), mode);
        if (geteuid() == 0 && setresuid(65534, 65534, 65534) != 0) _exit(2);
        _exit(DoesFileExist(path) ? 1 : 0);
    };
    EXPECT_EXIT(exists_for_an_ordinary_user(0444), ::testing::ExitedWithCode(1), "");
    EXPECT_EXIT(exists_for_an_ordinary_user(0000), ::testing::ExitedWithCode(0), "");
}

// ---- ParseJsonFile ----

class ParseJsonFileTest : public ::testing::Test {
protected:
    QoScratchDirectory scratch_;
    QoLogCapture log_;

    std::vector<QoLogLine> invalid(const std::string& path) {
        return {error_line("PushPull:*@#: JSON in file " + path + " is invalid json")};
    }
};

TEST_F(ParseJsonFileTest, GivesTheWholeTree) {
    const QoJsonNode node(ParseJsonFile(scratch_.write("f", " {\"b\":[1,35.0],\"a\":\"x\"}\n")));
    EXPECT_EQ(qo_json_write(node.get()), R"({"b":[1,35.0],"a":"x"})");
    EXPECT_THAT(log_.lines(), IsEmpty());
}

TEST_F(ParseJsonFileTest, OfAMissingFileReturnsNullSilently) {
    EXPECT_EQ(ParseJsonFile(scratch_.file("missing")), nullptr);
    EXPECT_THAT(log_.lines(), IsEmpty());
}

TEST_F(ParseJsonFileTest, OfADirectoryReturnsNullSilently) {
    EXPECT_EQ(ParseJsonFile(scratch_.path()), nullptr);
    EXPECT_THAT(log_.lines(), IsEmpty());
}

TEST_F(ParseJsonFileTest, OfAFileHoldingAnOpenBraceLogsThatItIsInvalid) {
    const std::string path = scratch_.write("f", "{");
    EXPECT_EQ(ParseJsonFile(path), nullptr);
    EXPECT_EQ(log_.lines(), invalid(path));
}

TEST_F(ParseJsonFileTest, OfAnEmptyFileReturnsNull) {
    const std::string path = scratch_.write("f", "");
    EXPECT_EQ(ParseJsonFile(path), nullptr);
    EXPECT_EQ(log_.lines(), invalid(path));
}

TEST_F(ParseJsonFileTest, OfATextWithANulByteBehindItReturnsNull) {
    const std::string path = scratch_.write("f", std::string("{}\0", 3));
    EXPECT_EQ(ParseJsonFile(path), nullptr);
    EXPECT_EQ(log_.lines(), invalid(path));
}

TEST_F(ParseJsonFileTest, OfTenMebibytesOfGarbageReturnsNull) {
    const std::string path = scratch_.write("f", std::string(10 << 20, '['));
    EXPECT_EQ(ParseJsonFile(path), nullptr);
    EXPECT_EQ(log_.lines(), invalid(path));
}

// ---- debug printers ----

TEST(PrintJson, TypeNamesEveryType) {
    const QoLogCapture log;
    for (const char* text : {"null", "\"s\"", "1", "true", "[]", "{}"}) PrintJsonType(qo_json_parse(text).get());
    EXPECT_THAT(
        log.lines(),
        ElementsAre(debug_line("JSON node is of JSON_NULL type"), debug_line("JSON node is of JSON_STRING type"),
                    debug_line("JSON node is of JSON_NUMBER type"), debug_line("JSON node is of JSON_BOOL type"),
                    debug_line("JSON node is of JSON_ARRAY type"), debug_line("JSON node is of JSON_NODE type")));
}

TEST(PrintJson, OnlyTypeReportsANullNode) {
    const QoLogCapture log;
    PrintJsonNode(nullptr);
    PrintJsonSize(nullptr);
    PrintJsonName(nullptr);
    PrintJsonType(nullptr);
    EXPECT_THAT(log.lines(), ElementsAre(error_line("NULL pointer")));
}

TEST(PrintJson, NodeIsItsFormattedText) {
    const QoLogCapture log;
    const QoJsonNode node = qo_json_parse(R"({"a":"100 %s"})");
    PrintJsonNode(node.get());
    EXPECT_THAT(log.lines(), ElementsAre(debug_line(qo_json_write_formatted(node.get()))));
}

TEST(PrintJson, SizeAndName) {
    const QoLogCapture log;
    const QoJsonNode node = qo_json_parse(R"({"zones":[1,2,3]})");
    PrintJsonSize(qo_json_find(node.get(), "zones"));
    PrintJsonName(qo_json_find(node.get(), "zones"));
    EXPECT_THAT(log.lines(), ElementsAre(debug_line("Size of the node is 3"), debug_line("Name of the node is zones")));
}

// ---- ConvertIntToString ----

TEST(ConvertIntToString, WritesDecimalBehindWhatTheStreamHolds) {
    std::ostringstream stream;
    stream << "/";
    ConvertIntToString(std::numeric_limits<long>::min(), stream);
    ConvertIntToString(0, stream);
    EXPECT_EQ(stream.str(), "/" + std::to_string(std::numeric_limits<long>::min()) + "0");
}

TEST(ConvertIntToString, AThrowingStreamIsLogged) {
    struct RefusingBuffer : std::streambuf {
    } buffer;
    std::ostream stream(&buffer);
    stream.exceptions(std::ios::badbit);
    const QoLogCapture log;
    ConvertIntToString(1, stream);
    ASSERT_EQ(log.lines().size(), 2U);
    EXPECT_THAT(log.lines()[0].text, ::testing::StartsWith("PushPull:*@#: Exception "));
    EXPECT_EQ(log.lines()[0].level, LOG_ERR);
    EXPECT_EQ(log.lines()[1], error_line("PushPull:*@#: Err in int to string conv"));
    EXPECT_EQ(log.lines()[1].operation, "ConvertIntToString");
}

// ---- qo_json_subset_equal ----

bool subset(const std::string& a, const std::string& b) {
    const QoJsonNode node_a = qo_json_parse(a);
    const QoJsonNode node_b = qo_json_parse(b);
    EXPECT_TRUE(node_a && node_b);
    const bool result = qo_json_subset_equal(node_a.get(), node_b.get());
    EXPECT_EQ(qo_json_write(node_a.get()), a);
    EXPECT_EQ(qo_json_write(node_b.get()), b);
    return result;
}

TEST(JsonSubsetEqual, TwoEqualStringsAreNot) { EXPECT_FALSE(subset(R"("a")", R"("a")")); }

TEST(JsonSubsetEqual, TwoEmptyContainersAreNot) {
    EXPECT_FALSE(subset("[]", "[]"));
    EXPECT_FALSE(subset("{}", "{}"));
    EXPECT_FALSE(subset("{}", R"({"a":1})"));
}

TEST(JsonSubsetEqual, DifferentTypesAreLogged) {
    const QoLogCapture log;
    EXPECT_FALSE(subset("[1]", R"({"a":1})"));
    EXPECT_THAT(
        log.lines(),
        ElementsAre(error_line("***qo_json_subset_equal: trying to compare two diff types json nodes 4,5  ***")));
}

TEST(JsonSubsetEqual, ANullNodeIsNotContained) {
    const QoJsonNode node = qo_json_parse("[1]");
    EXPECT_FALSE(qo_json_subset_equal(nullptr, node.get()));
    EXPECT_FALSE(qo_json_subset_equal(node.get(), nullptr));
    EXPECT_FALSE(qo_json_subset_equal(nullptr, nullptr));
}

TEST(JsonSubsetEqual, ArraysOfValuesAreNot) {
    EXPECT_FALSE(subset("[1,1]", "[1]"));
    EXPECT_FALSE(subset("[1]", "[1]"));
}

TEST(JsonSubsetEqual, EachElementMatchesOnlyOnce) {
    EXPECT_TRUE(subset(R"([{"a":1}])", R"([{"b":2},{"a":1}])"));
    EXPECT_TRUE(subset(R"([{"a":1},{"a":1}])", R"([{"a":1},{"b":2},{"a":1}])"));
    EXPECT_FALSE(subset(R"([{"a":1},{"a":1}])", R"([{"a":1},{"b":2}])"));
}

TEST(JsonSubsetEqual, ALeafComparesTheWholeObjectsAroundIt) {
    EXPECT_TRUE(subset(R"({"a":1,"b":2})", R"({"a":1,"b":2})"));
    EXPECT_FALSE(subset(R"({"a":1})", R"({"a":1,"b":2})"));
    EXPECT_TRUE(subset(R"({"o":{"x":1}})", R"({"o":{"x":1},"b":2})"));
}

TEST(JsonSubsetEqual, AMemberMissingOrOfAnotherTypeIsNot) {
    EXPECT_FALSE(subset(R"({"o":{"x":1}})", R"({"p":{"x":1}})"));
    EXPECT_FALSE(subset(R"({"o":{"x":1}})", R"({"o":[1]})"));
    EXPECT_FALSE(subset(R"({"o":{}})", R"({"o":{}})"));
}

TEST(JsonSubsetEqual, AnEmptyArrayMemberMatchesEveryArray) {
    EXPECT_TRUE(subset(R"({"l":[]})", R"({"l":[{"x":1}]})"));
    EXPECT_TRUE(subset(R"({"l":[]})", R"({"l":[]})"));
}

TEST(JsonSubsetEqual, ALeafBehindAnArrayComparesWithWhatIsLeftOfTheArray) {
    EXPECT_FALSE(subset(R"({"l":[{"x":1}],"v":1})", R"({"l":[{"x":1}],"v":1})"));
    EXPECT_TRUE(subset(R"({"l":[{"x":1}],"v":1})", R"({"l":[{"x":1},{"x":1}],"v":1})"));
    EXPECT_TRUE(subset(R"({"v":1,"l":[{"x":1}]})", R"({"v":1,"l":[{"x":1}]})"));
    EXPECT_FALSE(subset(R"({"v":1,"l":[{"x":1}],"w":1})", R"({"v":1,"l":[{"x":1}],"w":1})"));
}

TEST(JsonSubsetEqual, MembersOfOneNameShareTheElementsOfTheFirst) {
    EXPECT_TRUE(subset(R"({"l":[{"x":1}],"l":[{"x":1}]})", R"({"l":[{"x":1},{"x":1}]})"));
    EXPECT_FALSE(subset(R"({"l":[{"x":1}],"l":[{"x":1}]})", R"({"l":[{"x":1}],"l":[{"x":1}]})"));
}

TEST(JsonSubsetEqual, FollowsTheDeepestNestingThatATextCanHave) {
    const int levels = JSON_MAX_PARSE_DEPTH - 1;
    const std::string text = std::string(levels, '[') + R"({"a":1})" + std::string(levels, ']');
    EXPECT_TRUE(subset(text, text));
}

TEST(JsonSubsetEqual, RefusesATreeBuiltDeeperThanATextCanBe) {
    const auto nested = [](int levels) {
        QoJsonNode root(json_new(JSON_NODE));
        JSONNODE* innermost = root.get();
        for (int level = 0; level < levels; ++level) {
            JSONNODE* child = json_new(JSON_NODE);
            json_set_name(child, "a");
            json_push_back(innermost, child);
            innermost = child;
        }
        return root;
    };
    const QoLogCapture log;
    EXPECT_FALSE(qo_json_subset_equal(nested(131000).get(), nested(131000).get()));
    EXPECT_THAT(log.lines(), ElementsAre(error_line("qo_json_subset_equal: nodes are nested deeper than 512 levels")));
}

TEST(JsonSubsetEqual, ComparesAHundredThousandEqualMembersOrElementsInOnePass) {
    std::string members = "{";
    std::string elements = "[";
    for (int i = 0; i < 100000; ++i) {
        members += (i == 0 ? "\"m" : ",\"m") + std::to_string(i) + "\":1";
        elements += (i == 0 ? R"({"a":)" : R"(,{"a":)") + std::to_string(i) + "}";
    }
    const std::clock_t start = std::clock();  // processor time: other tests run beside this one
    EXPECT_TRUE(subset(members + "}", members + "}"));
    EXPECT_TRUE(subset(elements + "]", elements + "]"));
    EXPECT_LT((std::clock() - start) / CLOCKS_PER_SEC, 10);
}

}  // namespace
