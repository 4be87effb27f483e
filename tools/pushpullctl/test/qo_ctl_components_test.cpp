// Component identifiers by name, number and class.
#include "qo_ctl_components.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <fstream>
#include <set>
#include <sstream>

namespace {

using testing::Optional;

struct HeaderRow {
    std::string enumerator;
    long number;
};

/// The identifiers as the header has them, read as text and not by the compiler or the table's generator.
std::vector<HeaderRow> rows_of_header() {
    std::vector<HeaderRow> rows;
    std::ifstream header(QO_COMPONENT_HEADER);
    for (std::string line; std::getline(header, line);) {
        // "    NAME = NUMBER,"
        std::istringstream words(line);
        std::string name;
        std::string equals;
        std::string number;
        words >> name >> equals >> number;
        const bool is_row = name.rfind("QO_CMP", 0) == 0 && equals == "=" && number.back() == ',';
        if (is_row) rows.push_back({name, std::stol(number, nullptr, 0)});
    }
    return rows;
}

TEST(ComponentNames, TableHoldsEveryIdentifierOfTheHeaderInItsOrder) {
    const std::vector<HeaderRow> rows = rows_of_header();
    ASSERT_EQ(rows.size(), 81U);
    ASSERT_EQ(qo_ctl_components().size(), rows.size());
    for (size_t index = 0; index < rows.size(); ++index) {
        const QoCtlComponent& component = qo_ctl_components()[index];
        const std::string name = rows[index].enumerator.substr(rows[index].enumerator.find("ID_") + 3);
        EXPECT_EQ(component.name, name);
        EXPECT_EQ(static_cast<long>(component.id), rows[index].number) << name;
    }
}

TEST(ComponentNames, NoNameStandsForTwoIdentifiers) {
    std::set<std::string_view> names;
    for (const QoCtlComponent& component : qo_ctl_components())
        EXPECT_TRUE(names.insert(component.name).second) << component.name;
}

TEST(ComponentNames, ANameIsFoundWithAndWithoutItsPrefixInAnyCase) {
    EXPECT_THAT(qo_ctl_component_id("DEMO"), Optional(QO_CMPID_DEMO));
    EXPECT_THAT(qo_ctl_component_id("demo"), Optional(QO_CMPID_DEMO));
    EXPECT_THAT(qo_ctl_component_id("QO_CMPID_DEMO"), Optional(QO_CMPID_DEMO));
    EXPECT_THAT(qo_ctl_component_id("Usbmgr"), Optional(QO_CMP_ID_USBMGR));
    EXPECT_THAT(qo_ctl_component_id("qo_cmp_id_usbmgr"), Optional(QO_CMP_ID_USBMGR));
}

TEST(ComponentNames, ANumberIsDecimalOrHexadecimalAndNeedsNoName) {
    EXPECT_THAT(qo_ctl_component_id("1352"), Optional(QO_CMPID_SCHEDULER));
    EXPECT_THAT(qo_ctl_component_id("0x4000001C"), Optional(QO_CMPID_DEMO));
    EXPECT_THAT(qo_ctl_component_id("0X4000001c"), Optional(QO_CMPID_DEMO));
    EXPECT_THAT(qo_ctl_component_id("1240"), Optional(static_cast<eQO_CMP_IDs_>(1240)));
    EXPECT_THAT(qo_ctl_component_id("2147483647"), Optional(static_cast<eQO_CMP_IDs_>(2147483647)));
}

TEST(ComponentNames, WhatIsNoComponentIsRefused) {
    for (const char* text : {"", "NOBODY", "RESERVED", "0", "-1", "+5", "0x", "12a", " 12", "2147483648", "0xFFFFFFFF",
                             "99999999999999999999", "QO_CMPID_"})
        EXPECT_EQ(qo_ctl_component_id(text), std::nullopt) << text;
}

TEST(ComponentNames, AnIdentifierWithoutANameIsShownAsItsNumber) {
    EXPECT_EQ(qo_ctl_component_name(QO_CMP_ID_NETWORK_MANAGER), "NETWORK_MANAGER");
    EXPECT_EQ(qo_ctl_component_name(static_cast<eQO_CMP_IDs_>(1240)), "1240");
}

struct ClassCase {
    int32_t id;
    eQO_COMPONENT_CLASS_ component_class;
};
void PrintTo(const ClassCase& one, std::ostream* stream) { *stream << one.id; }

class ComponentClass : public testing::TestWithParam<ClassCase> {};

TEST_P(ComponentClass, FollowsTheBoundariesOfTheGatewayBlocks) {
    const auto id = static_cast<eQO_CMP_IDs_>(GetParam().id);
    EXPECT_EQ(qo_ctl_component_class(id), GetParam().component_class) << id;
}

INSTANTIATE_TEST_SUITE_P(Boundaries, ComponentClass,
                         testing::Values(ClassCase{1200, QO_INTERNAL}, ClassCase{1201, QO_LOCAL_CLIENT},
                                         ClassCase{1240, QO_LOCAL_CLIENT}, ClassCase{1250, QO_LOCAL_CLIENT},
                                         ClassCase{1251, QO_INTERNAL}, ClassCase{1301, QO_INTERNAL},
                                         ClassCase{1302, QO_REMOTE_CLIENT}, ClassCase{1303, QO_REMOTE_CLIENT},
                                         ClassCase{1304, QO_INTERNAL}, ClassCase{0x40000021, QO_INTERNAL},
                                         ClassCase{0x40000022, QO_LOCAL_CLIENT}, ClassCase{0x40000053, QO_LOCAL_CLIENT},
                                         ClassCase{0x40000054, QO_INTERNAL}, ClassCase{0x40000055, QO_INTERNAL},
                                         ClassCase{0x40000086, QO_INTERNAL}));

}  // namespace
