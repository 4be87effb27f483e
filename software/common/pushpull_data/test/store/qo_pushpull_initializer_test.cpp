// The default tree, whence it comes, and what of a tree is not saved.
#include "qo_pushpull_initializer.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <ctime>
#include <string>
#include <vector>

#include "log_capture.h"
#include "qo_pushpull_json.h"
#include "scratch_directory.h"

namespace {

using ::testing::ElementsAre;

const QoLogLine kNoDefaults{LOG_CRIT, "PushPull:*@#: No json defaults found"};
const QoLogLine kCreated{LOG_INFO, "PushPull:*@#: Default tree created"};
const QoLogLine kNullInTest{LOG_ERR, "PushPull:*@#: Null node"};
const QoLogLine kNullInTrim{LOG_ERR, "PushPull:*@#: Null node"};

std::string default_text() {
    std::string text = "what was there before";
    getDefaultTree(text);
    return text;
}

QoJsonNode default_tree() { return qo_json_parse(default_text()); }

/// The node at a pointer like /devices/0/device; null when there is none.
JSONNODE* at(JSONNODE* node, const std::string& pointer) {
    std::istringstream segments(pointer.substr(1));
    for (std::string segment; node != nullptr && std::getline(segments, segment, '/');)
        node = json_type(node) == JSON_ARRAY ? json_at(node, std::stoul(segment)) : qo_json_find(node, segment);
    return node;
}

std::string text_at(JSONNODE* tree, const std::string& pointer) { return qo_json_write(at(tree, pointer)); }

std::vector<std::string> names_at(JSONNODE* tree, const std::string& pointer) {
    std::vector<std::string> names;
    for (const JSONNODE* child : QoJsonChildren(at(tree, pointer))) names.emplace_back(qo_json_name(child));
    return names;
}

// ---- the built-in text ----

TEST(DefaultTreeText, Has17014CharactersIn27Members) {
    EXPECT_EQ(default_text().size(), 17014U);
    EXPECT_EQ(json_size(default_tree().get()), 27U);
}

TEST(DefaultTreeText, SystemFragmentHas7886Characters) {
    const QoJsonNode tree = default_tree();
    const std::string fragment = "\"system\":" + text_at(tree.get(), "/system");
    EXPECT_EQ(fragment.size(), 7886U);
    EXPECT_NE(default_text().find("," + fragment + ","), std::string::npos);
}

TEST(DefaultTreeText, HasNoWhiteSpaceOutsideStrings) { EXPECT_EQ(qo_json_write(default_tree().get()), default_text()); }

TEST(DefaultTreeText, KeepsWhiteSpaceInsideStrings) {
    EXPECT_NE(default_text().find(R"("integrationCard":"NOT INSTALLED")"), std::string::npos);
    EXPECT_NE(default_text().find(R"("state":"not registered")"), std::string::npos);
}

TEST(DefaultTreeText, MembersStandInOrder) {
    EXPECT_THAT(
        names_at(default_tree().get(), "/"),
        ElementsAre("centerButton", "logs", "system", "privateNode", "parameterReset", "systemCommandRequest",
                    "remoteStatus", "usb", "rgw", "nmDbusNotifications", "dlm", "version", "siblings", "kivoLog",
                    "interfaces", "resetKivo", "ledErrorType", "errorRecovery", "userAccess", "serverAssigned", "fwm",
                    "devices", "nmKivowifi", "command", "parameterUpdate", "error", "connectionManagement"));
}

TEST(DefaultTreeText, ThreeFragmentsStandExactly) {
    const std::string text = default_text();
    EXPECT_NE(text.find(R"({"centerButton":{"status":"unknown","doNotPersist":true},)"), std::string::npos);
    EXPECT_NE(text.find(R"(,"logs":{"mapper":"","debugloglevel":"notice","writeAccess":"remote","flush":"",)"
                        R"("vexalog":"disable"},)"),
              std::string::npos);
    EXPECT_NE(text.find(R"(,"version":{"schemaVersion":"0.0"},)"), std::string::npos);
}

void expect_one_template_element(const JSONNODE* array, const std::string& path) {
    ASSERT_EQ(json_size(array), 1U) << path;
    const JSONNODE* id = qo_json_find(json_at(array, 0), "id");
    ASSERT_NE(id, nullptr) << path;
    EXPECT_EQ(qo_json_write(id), "0") << path;
}

int expect_template_elements_below(JSONNODE* node, const std::string& path) {
    int arrays = 0;
    if (json_type(node) == JSON_ARRAY) {
        expect_one_template_element(node, path);
        ++arrays;
    }
    for (JSONNODE* child : QoJsonChildren(node))
        arrays += expect_template_elements_below(child, path + "/" + std::string(qo_json_name(child)));
    return arrays;
}

TEST(DefaultTreeText, EveryArrayHoldsOneTemplateElementWithId0) {
    EXPECT_GT(expect_template_elements_below(default_tree().get(), ""), 30);
}

TEST(DefaultTreeText, MetadataStandOnTheNodesThatTheyGovern) {
    const QoJsonNode tree = default_tree();
    struct Row {
        const char* pointer;
        const char* write_access;  // null: none
        bool do_not_persist;
        int max_items;  // 0: none
    };
    const Row rows[] = {
        {"/centerButton", nullptr, true, 0},
        {"/logs", "remote", false, 0},
        {"/system", nullptr, false, 0},
        {"/system/info", "remote", false, 0},
        {"/system/info/address", "remote", false, 0},
        {"/system/status", "local", true, 0},
        {"/system/errors", "openAll", false, 0},
        {"/system/errors/alertCmd", "openAll", true, 0},
        {"/system/errors/devices/0", nullptr, false, 0},
        {"/system/errors/active/0", nullptr, true, 256},
        {"/system/errors/history/0", nullptr, false, 256},
        {"/system/infoalerts", "openAll", false, 0},
        {"/system/infoalerts/active/0", nullptr, true, 256},
        {"/system/alarms", "openAll", false, 0},
        {"/system/alarms/alertCmd", "openAll", true, 0},
        {"/system/alarms/history/0", nullptr, false, 256},
        {"/system/remoteConnection", "openAll", true, 0},
        {"/system/parameters/0", nullptr, false, 0},
        {"/system/clock", "openAll", false, 0},
        {"/system/primarySpareIORead/0", nullptr, true, 0},
        {"/system/primarySpareIOWrite/0", nullptr, true, 0},
        {"/system/time", nullptr, true, 0},
        {"/system/wifiDirect", nullptr, false, 0},
        {"/system/wifiDirect/wifiDirectConfig", nullptr, true, 0},
        {"/system/registration", nullptr, false, 0},
        {"/system/config", "openAll", false, 0},
        {"/privateNode", "internal", false, 0},
        {"/parameterReset", "remote", true, 0},
        {"/systemCommandRequest", nullptr, true, 0},
        {"/remoteStatus", nullptr, true, 0},
        {"/usb", nullptr, false, 0},
        {"/rgw", "openAll", false, 0},
        {"/rgw/status", "openAll", true, 0},
        {"/rgw/diagnostics/0", nullptr, true, 0},
        {"/rgw/command", "openAll", true, 0},
        {"/rgw/configSec", nullptr, false, 0},
        {"/nmDbusNotifications", nullptr, false, 0},
        {"/dlm", nullptr, false, 0},
        {"/version", nullptr, false, 0},
        {"/siblings/0", "openAll", true, 16},
        {"/siblings/0/sibling", "openAll", true, 0},
        {"/kivoLog", nullptr, true, 0},
        {"/interfaces/0", "openAll", false, 8},
        {"/interfaces/0/info", nullptr, true, 0},
        {"/interfaces/0/wifiStatus", nullptr, true, 0},
        {"/interfaces/0/backupDetails", nullptr, false, 0},
        {"/interfaces/0/scannedList/0", nullptr, true, 0},
        {"/interfaces/0/config", nullptr, true, 0},
        {"/resetKivo", nullptr, true, 0},
        {"/ledErrorType", nullptr, false, 0},
        {"/errorRecovery", nullptr, false, 0},
        {"/errorRecovery/errorDetails/0", "openAll", false, 20},
        {"/errorRecovery/logError", nullptr, true, 0},
        {"/errorRecovery/resetProcess", nullptr, true, 0},
        {"/userAccess", nullptr, false, 0},
        {"/serverAssigned", "openAll", false, 0},
        {"/serverAssigned/urlsSec", "openAll", false, 0},
        {"/serverAssigned/identities", "openAll", false, 0},
        {"/serverAssigned/identities/pin", "openAll", false, 0},
        {"/serverAssigned/security", "openAll", false, 0},
        {"/serverAssigned/security/certificateToken", "openAll", false, 0},
        {"/serverAssigned/security/userToken", "openAll", false, 0},
        {"/serverAssigned/security/vrtToken", "openAll", false, 0},
        {"/fwm", nullptr, false, 0},
        {"/fwm/fwmFiles/0", "remote", true, 0},
        {"/fwm/fwmUsbDlInfo", nullptr, true, 0},
        {"/fwm/fwmdevupdate", "remote", true, 0},
        {"/fwm/fwmUI", "local", true, 0},
        {"/fwm/fwmAutoOn", "local", false, 0},
        {"/devices/0", "openAll", false, 16},
        {"/devices/0/device/status", "local", true, 0},
        {"/devices/0/device/relayOperationMode", nullptr, true, 0},
        {"/devices/0/device/spareIORead/0", nullptr, true, 4},
        {"/devices/0/device/spareIOWrite/0", nullptr, true, 4},
        {"/nmKivowifi", "openAll", true, 0},
        {"/command", "openAll", true, 0},
        {"/parameterUpdate", "remote", true, 0},
        {"/error/0", nullptr, true, 0},
        {"/connectionManagement/0", "openAll", true, 0},
    };
    for (const Row& row : rows) {
        SCOPED_TRACE(row.pointer);
        JSONNODE* node = at(tree.get(), row.pointer);
        ASSERT_NE(node, nullptr);
        const JSONNODE* write_access = qo_json_find(node, "writeAccess");
        EXPECT_EQ(write_access != nullptr, row.write_access != nullptr);
        if (row.write_access != nullptr) EXPECT_EQ(qo_json_string(write_access), row.write_access);
        EXPECT_EQ(json_as_bool(qo_json_find(node, "doNotPersist")) != 0, row.do_not_persist);
        EXPECT_EQ(json_as_int(qo_json_find(node, "maxItems")), row.max_items);
    }
}

constexpr char kAlert[] =
    R"({"timestampClear":null,"code":0,"equipmentId":0,"timestampLast":null,"timestampFirst":null,)"
    R"("optionalfieldData":"","isStillActive":false,"priority":"minor","notifyUser":false,"optionalfieldType":"null",)"
    R"("userMessageID":0,"userMessage":"","equipmentAddress":0,"update":false,"clearableByUser":false,"count":0,)"
    R"("notifyDealer":false,"equipmentType":0,"clearableByDealer":true,"clearedBy":"device","action":"clear"})";
constexpr char kMeta[] = R"({"numClearedAlerts":0,"numActiveAlerts":0,"lastClearedAlertId":0,"szClearedAlerts":256,)"
                         R"("firstClearedAlertId":0,"numAlertsInActiveArray":0})";

TEST(DefaultTreeText, ThreeAlertContainersHaveOneShape) {
    const QoJsonNode tree = default_tree();
    const std::string alert = kAlert;
    const std::string meta = kMeta;
    const std::string container =
        R"({"writeAccess":"openAll","alertCmd":{"writeAccess":"openAll","doNotPersist":true,"alert":)" + alert +
        R"(},"devices":[{"id":0,"equipmentAddress":0,"meta":)" + meta + R"(}],"meta":)" + meta +
        R"(,"active":[{"doNotPersist":true,"maxItems":256,"id":0,"alert":)" + alert +
        R"(}],"history":[{"maxItems":256,"id":0,"alert":)" + alert + "}]}";
    EXPECT_EQ(text_at(tree.get(), "/system/errors"), container);
    EXPECT_EQ(text_at(tree.get(), "/system/infoalerts"), container);
    EXPECT_EQ(text_at(tree.get(), "/system/alarms"), container);
}

TEST(DefaultTreeText, SystemMembersStandInOrder) {
    const QoJsonNode tree = default_tree();
    EXPECT_THAT(names_at(tree.get(), "/system"),
                ElementsAre("info", "status", "errors", "szCompatibleFeatures", "remoteConnection", "parameters",
                            "compatibleFeatures", "infoalerts", "clock", "primarySpareIORead", "primarySpareIOWrite",
                            "time", "wifiDirect", "registration", "alarms", "config", "ports", "szParameters"));
    EXPECT_THAT(names_at(tree.get(), "/system/parameters/0/parameter"),
                ElementsAre("name", "pid", "defaultValue", "enabled", "value", "range", "radio", "deviceAddress",
                            "unit", "string"));
    EXPECT_THAT(names_at(tree.get(), "/system/compatibleFeatures/0/compatibleFeature"),
                ElementsAre("enabled", "feature"));
    EXPECT_THAT(names_at(tree.get(), "/system/ports/0/port"),
                ElementsAre("name", "valid", "boardId", "enabled", "modelNumber", "address", "hwRevision", "swRevision",
                            "type", "partNumber"));
    EXPECT_THAT(names_at(tree.get(), "/system/wifiDirect/APDetails"),
                ElementsAre("status", "numberOfConnections", "ssid", "ssidBroadcastStatus", "p2pSubnetMask",
                            "connectedDevices", "mac", "p2pIp", "mode", "popupStatus", "p2pStatus"));
    EXPECT_THAT(names_at(tree.get(), "/system/wifiDirect/wifiDirectConfig"),
                ElementsAre("doNotPersist", "command", "value"));
    EXPECT_THAT(names_at(tree.get(), "/system/primarySpareIORead/0"),
                ElementsAre("doNotPersist", "id", "sensorFunction", "spareIOPort", "deviceAddress"));
}

TEST(DefaultTreeText, FirmwareManagementMembersStandInOrder) {
    const QoJsonNode tree = default_tree();
    EXPECT_THAT(
        names_at(tree.get(), "/fwm"),
        ElementsAre("fwmFiles", "fwmUsbDlInfo", "fwmdownloadinfo", "fwmdevupdate", "fwmversiondetails", "fwmusbupdate",
                    "fwminternal", "fwmUI", "fwmalarminfo", "fwmdevimagesInt", "fwmdevimages", "fwmAutoOn"));
    EXPECT_THAT(names_at(tree.get(), "/fwm/fwmFiles/0"),
                ElementsAre("writeAccess", "doNotPersist", "id", "major", "description", "deviceModel", "build", "path",
                            "minor", "size"));
    EXPECT_THAT(names_at(tree.get(), "/fwm/fwmdownloadinfo/0"),
                ElementsAre("id", "currentbytes", "src", "Qid", "dst", "percentagedownload", "totalbytes"));
    EXPECT_THAT(names_at(tree.get(), "/fwm/fwmdevupdate"),
                ElementsAre("writeAccess", "doNotPersist", "id", "deviceName", "progress", "path", "deviceAddress",
                            "upgradeSwRevision"));
    EXPECT_THAT(names_at(tree.get(), "/fwm/fwmversiondetails/0"),
                ElementsAre("id", "major", "timeOfUpdate", "description", "deviceModel", "build", "minor", "size"));
    EXPECT_THAT(names_at(tree.get(), "/fwm/fwmusbupdate"),
                ElementsAre("source", "fw_USB_available", "packagedetails", "fw_USB_authorized"));
    EXPECT_EQ(json_type(at(tree.get(), "/fwm/fwmalarminfo/alarminfo/0/tstat_alarm_msg")), JSON_NODE);
    EXPECT_EQ(json_type(at(tree.get(), "/fwm/fwmdevimagesInt/binary")), JSON_ARRAY);
    EXPECT_EQ(json_type(at(tree.get(), "/fwm/fwmdevimages/binary")), JSON_ARRAY);
}

TEST(DefaultTreeText, DeviceAndInterfaceMembersStandInOrder) {
    const QoJsonNode tree = default_tree();
    EXPECT_THAT(names_at(tree.get(), "/devices/0/device"),
                ElementsAre("status", "deviceName", "swLastUpdateTime", "deviceAddress", "features", "parameters",
                            "valveType", "szFeatures", "relayOperationMode", "spareIORead", "spareIOWrite",
                            "szParameters", "deviceType", "doorSwitchConfig", "swRevision"));
    EXPECT_THAT(names_at(tree.get(), "/devices/0/device/relayOperationMode"),
                ElementsAre("doNotPersist", "relay_fan", "relay_defrost", "relay_alarm", "relay_spare",
                            "relay_solenoid", "opMode", "relay_two_speed", "relay_exv", "relay_compressor"));
    EXPECT_THAT(names_at(tree.get(), "/devices/0/device/status"),
                ElementsAre("writeAccess", "doNotPersist", "superheatTemperatureC", "humidityValue", "sstCalculationC",
                            "primaryTemperature", "auxiliaryTemperatureC", "evapSuctionPressureBar",
                            "primaryTemperatureC", "auxiliaryTemperature", "suctionTemperature",
                            "currentEEVStepPosition", "boardVoltage", "superheatTemperature", "lengthLastDefrost",
                            "evapSuctionPressurePa", "coilTemperature", "coilTemperatureC", "suctionTemperatureC",
                            "sstCalculation", "softwareVersion", "evapSuctionPressurePsia", "evapSuctionPressure"));
    EXPECT_THAT(names_at(tree.get(), "/interfaces/0"),
                ElementsAre("writeAccess", "maxItems", "id", "info", "wifiStatus", "backupDetails", "scannedList",
                            "config", "adapterType"));
    EXPECT_THAT(names_at(tree.get(), "/interfaces/0/info"),
                ElementsAre("doNotPersist", "status", "apDetails", "diagnostics"));
    EXPECT_THAT(names_at(tree.get(), "/interfaces/0/backupDetails"), ElementsAre("apDetails", "networkStatus"));
    EXPECT_THAT(names_at(tree.get(), "/interfaces/0/config"),
                ElementsAre("doNotPersist", "staticConfig", "apDetails", "command"));
    for (const char* holder : {"info", "backupDetails", "scannedList/0", "config"}) {
        EXPECT_THAT(names_at(tree.get(), std::string("/interfaces/0/") + holder + "/apDetails"),
                    ElementsAre("ssid", "bssid", "rssi", "security", "password"));
    }
}

TEST(DefaultTreeText, ValuesAreThoseThatComponentsRelyOn) {
    const QoJsonNode tree = default_tree();
    const std::vector<std::pair<std::string, std::string>> rows = {
        {"/system/info",
         R"({"writeAccess":"remote","address":{"writeAccess":"remote","streetAddress2":"","streetAddress1":"","zip":"",)"
         R"("city":"","country":"US","longitude":0,"phone":"","state":0,"latitude":0},"name":"System",)"
         R"("storename":"Store"})"},
        {"/system/status",
         R"({"writeAccess":"local","doNotPersist":true,"numberOfDevices":1,"productLoadTimer":0,)"
         R"("subState":"POWER_DOWN","integrationCard":"NOT INSTALLED","primaryHumidityValue":-1,)"
         R"("systemTemperatureC":25.5,"state":"POWER_DOWN","screenLock":"UNLOCK","systemWideVersion":0,"door":"open",)"
         R"("systemTemperature":77,"defrostCycles":0,"operatingMode":"undefined"})"},
        {"/system/szCompatibleFeatures", "0"},
        {"/system/szParameters", "0"},
        {"/system/remoteConnection",
         R"({"writeAccess":"openAll","doNotPersist":true,"remoteStatus":"","remoteIP":"","ethernetMAC":""})"},
        {"/system/clock",
         R"({"writeAccess":"openAll","setRtcTime":"","tz":"Non-Standard","format":"12hour","localSetRtcTime":"",)"
         R"("enableDst":false,"dstOffset":0,"offset":-21600})"},
        {"/system/primarySpareIOWrite/0/spareIOPort", R"("none")"},
        {"/system/time", R"({"doNotPersist":true,"currentTime":"","sysUpTime":0})"},
        {"/system/registration", R"({"state":"not registered","eula":"accepted","statusMsg":""})"},
        {"/system/config",
         R"({"writeAccess":"openAll","name":"System","language":"english","centralMode":false,"temperatureUnit":"F",)"
         R"("circulateTime":35.0,"humidificationMode":"basic","enhancedDehumidificationOvercoolingC":1,)"
         R"("enhancedDehumidificationOvercoolingF":2,"vrtGroupId":1,"trebonMode":false,)"
         R"("dehumidificationMode":"auto"})"},
        {"/privateNode", R"({"writeAccess":"internal","wifi":{"pin":""},"expert":{"pin":""},"basic":{"pin":""}})"},
        {"/parameterReset", R"({"doNotPersist":true,"writeAccess":"remote","resetAll":false,"et":0})"},
        {"/systemCommandRequest", R"({"doNotPersist":true,"reboot":"NONE","reboot_status":"NONE","date":""})"},
        {"/remoteStatus", R"({"doNotPersist":true,"sysIdAssigned":"interrogation_fail","kivoService":"unreachable",)"
                          R"("ethStatus":"not_connected","inetAvailable":"not_available","remoteWebserverType":"dev",)"
                          R"("tunnelIpSet":"openvpn_fail","ipAssigned":"not_assigned","sysRegistered":"unregistered",)"
                          R"("rmtServerOnline":"no_ip_addr"})"},
        {"/usb", R"({"state":"disconnected","mounted":false,"mode":"fwm","unmounted":false})"},
        {"/rgw/status",
         R"({"doNotPersist":true,"writeAccess":"openAll","pingInProgress":false,"relayServerConnected":false,)"
         R"("internetStatus":false,"rgwUp":false})"},
        {"/rgw/regPin", R"({"pin":""})"},
        {"/rgw/aapState", R"("unregistered")"},
        {"/rgw/command", R"({"doNotPersist":true,"writeAccess":"openAll","code":"noCmd","payload":""})"},
        {"/nmDbusNotifications", R"({"status":false,"objPath":"","signalType":"unknown"})"},
        {"/dlm", R"({"dlmFw":{"stop_dl":false,"init_dl":false,"dl_done":false}})"},
        {"/siblings",
         R"([{"doNotPersist":true,"writeAccess":"openAll","maxItems":16,"id":0,"selfIdentifier":"","sibling":)"
         R"({"doNotPersist":true,"writeAccess":"openAll","ipAddressType":"ipv4","timeAdded":"",)"
         R"("groupCountTracker":false,"linkUpCount":0,"linkState":"down","systemName":"","nodePresent":false,)"
         R"("portNumber":0,"identifier":"","ipAddress":""}}])"},
        {"/kivoLog", R"({"doNotPersist":true,"transactionLogs":{"chSrc":"","oldValue":"","paramId":"","newValue":""},)"
                     R"("logType":"unknown","alarmLogs":{"chSrc":"","paramId":"","alarmStatus":"","alarmEVAddress":"",)"
                     R"("alarmStatusChangeTime":""},"deviceAddress":""})"},
        {"/interfaces/0/wifiStatus/status", R"("disassociated")"},
        {"/interfaces/0/config/command", R"("unknown")"},
        {"/interfaces/0/config/apDetails/security", R"("none")"},
        {"/interfaces/0/config/apDetails/password", R"("")"},
        {"/interfaces/0/adapterType", R"("unknown")"},
        {"/resetKivo", R"({"doNotPersist":true,"state":"run"})"},
        {"/ledErrorType", R"({"errorType":"NOERROR","isError":false})"},
        {"/errorRecovery",
         R"({"errorDetails":[{"writeAccess":"openAll","maxItems":20,"id":0,"errorCode":0,)"
         R"("resetProcessCount":{"count":0,"maxCount":5},"errorCount":0,"componentId":0,"maxErrorCount":5}],)"
         R"("logError":{"doNotPersist":true,"errorCode":0,"componentId":0},"kivoResetCount":{"count":0,"maxCount":5},)"
         R"("resetProcess":{"doNotPersist":true,"componentId":0}})"},
        {"/userAccess", R"({"passcode":{"pin":""},"changeBasicPin":{"pin":""},"changeExpertPin":{"pin":""}})"},
        {"/serverAssigned/claimStatus", R"("unclaimed")"},
        {"/serverAssigned/identities/sysId", R"("VRTSerialNumber")"},
        {"/serverAssigned/identities/pin",
         R"({"writeAccess":"openAll","expiryTime":"","encoded":"","type":"pin","issueTime":""})"},
        {"/fwm/fwmUsbDlInfo/percentagedownload", "0"},
        {"/fwm/fwmdevupdate/id", "0"},
        {"/fwm/fwmusbupdate/fw_USB_available", "false"},
        {"/fwm/fwmusbupdate/fw_USB_authorized", "false"},
        {"/fwm/fwminternal", R"({"stop_dl":false,"devPend":0})"},
        {"/fwm/fwmUI",
         R"({"writeAccess":"local","doNotPersist":true,"usb_updatereq":false,"flashLED":false,"check_fw":false})"},
        {"/fwm/fwmAutoOn", R"({"writeAccess":"local","auto_on":true})"},
        {"/devices/0/device/status/superheatTemperatureC", "25.5"},
        {"/devices/0/device/status/humidityValue", "-1"},
        {"/devices/0/device/status/sstCalculationC", "25.5"},
        {"/devices/0/device/status/primaryTemperature", "77"},
        {"/devices/0/device/status/auxiliaryTemperatureC", "25.5"},
        {"/devices/0/device/status/evapSuctionPressureBar", "0.0"},
        {"/devices/0/device/status/primaryTemperatureC", "25.5"},
        {"/devices/0/device/status/auxiliaryTemperature", "77"},
        {"/devices/0/device/status/suctionTemperature", "77"},
        {"/devices/0/device/deviceName", R"("")"},
        {"/devices/0/device/swLastUpdateTime", "null"},
        {"/devices/0/device/deviceAddress", R"("")"},
        {"/devices/0/device/valveType", R"("CAREL")"},
        {"/devices/0/device/szFeatures", "0"},
        {"/devices/0/device/szParameters", "0"},
        {"/devices/0/device/deviceType", R"("KIVO")"},
        {"/devices/0/device/doorSwitchConfig", R"("NO")"},
        {"/devices/0/device/swRevision", R"("")"},
        {"/nmKivowifi",
         R"({"doNotPersist":true,"writeAccess":"openAll","serviceType":"","p2pClientIp":"","serialNumber":"",)"
         R"("state":"idle","command":"unknown","mode":"unknown","subnetMask":"","p2pGroupOwnerIp":"","portNumber":0,)"
         R"("localHostName":""})"},
        {"/command", R"({"doNotPersist":true,"writeAccess":"openAll","status":"none","request":"","cmdID":0,)"
                     R"("deviceAddress":""})"},
        {"/parameterUpdate",
         R"({"doNotPersist":true,"writeAccess":"remote","pid":0,"value":"","et":0,"deviceAddress":""})"},
        {"/error", R"([{"doNotPersist":true,"id":0,"code":0,"message":""}])"},
        {"/connectionManagement",
         R"([{"doNotPersist":true,"writeAccess":"openAll","id":0,"connectedDeviceInfo":{"deviceIp":"","deviceMac":"",)"
         R"("deviceTimeoutCount":0,"priorityNumber":0,"deviceStatus":"INACTIVE","numberOfSessions":0}}])"},
    };
    for (const auto& [pointer, text] : rows) EXPECT_EQ(text_at(tree.get(), pointer), text) << pointer;
}

TEST(DefaultTreeText, GatewayTuningHasItsTimesAndReservedHostNames) {
    const QoJsonNode tree = default_tree();
    EXPECT_THAT(names_at(tree.get(), "/rgw"),
                ElementsAre("writeAccess", "status", "regPin", "aapState", "diagnostics", "command", "configSec"));
    EXPECT_THAT(names_at(tree.get(), "/rgw/diagnostics/0"),
                ElementsAre("doNotPersist", "id", "remotePort", "localPort", "connName", "remoteAddress", "activeOpens",
                            "localAddress", "attemptFails"));
    EXPECT_THAT(
        text_at(tree.get(), "/rgw/configSec"),
        ::testing::MatchesRegex(
            R"(\{"pingDuration":60000,"connectTimeout":5000,"shortPollRemUser":5000,"weatherEpId":"[-0-9a-f]+",)"
            R"("shortPollPeriod":53000,"relayServerPort":80,"longPollTime":20000,"maxConnectAttempts":60,)"
            R"("backOffTime":60000,"respTimeout":24000,"pingInterval":15000,)"
            R"("pingUrl":"[a-z.]+\.example\.com","relayServerUrl":"[a-z.]+\.example\.com",)"
            R"("urlsConfigured":false,"connectRetryPeriod":5000\})"));
}

TEST(DefaultTreeText, ThreeServiceUrlsAreOneOnPort80) {
    const QoJsonNode tree = default_tree();
    const std::string url = text_at(tree.get(), "/serverAssigned/urlsSec/dataUpload");
    EXPECT_THAT(url, ::testing::MatchesRegex(R"("http://[a-z]+\.example\.com:80/[a-z0-9/]*")"));
    EXPECT_EQ(text_at(tree.get(), "/serverAssigned/urlsSec/notification"), url);
    EXPECT_EQ(text_at(tree.get(), "/serverAssigned/urlsSec/firmwareDownload"), url);
}

// ---- creation ----

class InitializerTest : public ::testing::Test {
protected:
    void TearDown() override { EXPECT_EQ(initializer_.Terminate(), 0); }

    QoScratchDirectory scratch_;
    QoLogCapture log_;
    Initializer initializer_{scratch_.path()};
};

TEST_F(InitializerTest, HasNoTreeBeforeInitAndAfterTerminate) {
    EXPECT_EQ(initializer_.default_tree(), nullptr);
    EXPECT_EQ(initializer_.Init(), 0);
    EXPECT_NE(initializer_.default_tree(), nullptr);
    EXPECT_EQ(initializer_.Terminate(), 0);
    EXPECT_EQ(initializer_.default_tree(), nullptr);
}

TEST_F(InitializerTest, ExecuteAlwaysReturnsMinusOne) {
    EXPECT_EQ(initializer_.Execute(), -1);
    initializer_.Init();
    EXPECT_EQ(initializer_.Execute(), -1);
}

TEST_F(InitializerTest, WithoutADefaultsFileTheBuiltInTreeIsUsed) {
    EXPECT_EQ(initializer_.Init(), 0);
    EXPECT_EQ(qo_json_write(initializer_.default_tree()), default_text());
    EXPECT_THAT(log_.lines(), ElementsAre(kNoDefaults, kCreated));
}

TEST_F(InitializerTest, ADefaultsFileReplacesTheBuiltInTreeEntirely) {
    scratch_.write("defaults.json", R"({"version":{"schemaVersion":"9"}})");
    EXPECT_EQ(initializer_.Init(), 0);
    EXPECT_EQ(qo_json_write(initializer_.default_tree()), R"({"version":{"schemaVersion":"9"}})");
    EXPECT_THAT(log_.lines(), ElementsAre(kCreated));
}

TEST_F(InitializerTest, ADefaultsFileWithInvalidJsonGivesWayToTheBuiltInTree) {
    const std::string path = scratch_.write("defaults.json", "{");
    EXPECT_EQ(initializer_.Init(), 0);
    EXPECT_EQ(qo_json_write(initializer_.default_tree()), default_text());
    EXPECT_THAT(log_.lines(),
                ElementsAre(QoLogLine{LOG_ERR, "PushPull:*@#: JSON in file " + path + " is invalid json"}, kCreated));
}

TEST_F(InitializerTest, ASecondInitReadsTheDefaultsFileAfresh) {
    EXPECT_EQ(initializer_.Init(), 0);
    scratch_.write("defaults.json", "{}");
    EXPECT_EQ(initializer_.Init(), 0);
    EXPECT_EQ(qo_json_write(initializer_.default_tree()), "{}");
}

// ---- what is not saved ----

TEST_F(InitializerTest, OnlyTheNodesOwnTrueMarkerMakesItNonPersistent) {
    const std::vector<std::pair<const char*, bool>> rows = {
        {R"({"doNotPersist":true})", true},
        {R"({"a":1,"doNotPersist":true,"b":2})", true},
        {R"({"doNotPersist":false,"doNotPersist":true})", true},
        {R"({"doNotPersist":false})", false},
        {R"({"doNotPersist":"true"})", false},
        {R"({"doNotPersist":1})", false},
        {R"({"a":{"doNotPersist":true}})", false},
        {R"([{"doNotPersist":true}])", false},
        {R"({})", false},
        {R"("doNotPersist")", false},
    };
    for (const auto& [text, expected] : rows)
        EXPECT_EQ(initializer_.IsNodeNonPersistent(qo_json_parse(text).get()), expected) << text;
}

TEST_F(InitializerTest, ANullNodeIsLogged) {
    EXPECT_FALSE(initializer_.IsNodeNonPersistent(nullptr));
    EXPECT_EQ(initializer_.TrimNonPersistentData(nullptr), -1);
    EXPECT_THAT(log_.lines(), ElementsAre(kNullInTest, kNullInTrim));
}

class TrimTest : public InitializerTest {
protected:
    std::string trimmed(const std::string& text) {
        const QoJsonNode node = qo_json_parse(text);
        EXPECT_EQ(initializer_.TrimNonPersistentData(node.get()), 0);
        return qo_json_write(node.get());
    }
};

TEST_F(TrimTest, ErasesNonPersistentMembersAtEveryLevel) {
    EXPECT_EQ(trimmed(R"({"a":{"doNotPersist":true,"x":1},"b":{"c":{"doNotPersist":true},"d":2}})"),
              R"({"b":{"d":2}})");
}

TEST_F(TrimTest, ErasesAWholeArrayForOneNonPersistentElement) {
    EXPECT_EQ(trimmed(R"({"arr":[{"id":0},{"id":1,"doNotPersist":true}],"k":1})"), R"({"k":1})");
}

TEST_F(TrimTest, KeepsAMarkerThatIsFalse) {
    EXPECT_EQ(trimmed(R"({"a":{"doNotPersist":false,"x":1}})"), R"({"a":{"doNotPersist":false,"x":1}})");
}

TEST_F(TrimTest, KeepsOrderAndTheRootItself) {
    EXPECT_EQ(trimmed(R"({"doNotPersist":true,"a":1,"b":{"doNotPersist":true},"c":3,"d":[],"e":{}})"),
              R"({"doNotPersist":true,"a":1,"c":3,"d":[],"e":{}})");
}

TEST_F(TrimTest, TrimsInsideTheElementsOfAnArray) {
    EXPECT_EQ(
        trimmed(R"({"devices":[{"id":0,"status":{"doNotPersist":true}},7,{"id":2,"l":[{"doNotPersist":true}]}]})"),
        R"({"devices":[{"id":0},7,{"id":2}]})");
}

TEST_F(TrimTest, AnElementOfAnInnerArrayIsErasedAlone) {
    EXPECT_EQ(trimmed(R"({"a":[[{"id":0},{"doNotPersist":true}]]})"), R"({"a":[[{"id":0}]]})");
}

TEST_F(TrimTest, LeavesValuesAndEmptyContainersAlone) {
    EXPECT_EQ(trimmed("7"), "7");
    EXPECT_EQ(trimmed("{}"), "{}");
    EXPECT_EQ(trimmed("[]"), "[]");
}

TEST_F(TrimTest, OfTheBuiltInTreeNothingTransientRemains) {
    const QoJsonNode tree = default_tree();
    EXPECT_EQ(initializer_.TrimNonPersistentData(tree.get()), 0);
    EXPECT_EQ(qo_json_write(tree.get()).find(R"("doNotPersist":true)"), std::string::npos);
    for (const char* pointer :
         {"/siblings", "/error", "/connectionManagement", "/system/errors/active", "/rgw/diagnostics",
          "/interfaces/0/scannedList", "/fwm/fwmFiles", "/devices/0/device/spareIORead", "/system/primarySpareIOWrite"})
        EXPECT_EQ(at(tree.get(), pointer), nullptr) << pointer;
    EXPECT_NE(at(tree.get(), "/system/errors/history/0/alert"), nullptr);
}

TEST_F(TrimTest, GoesToTheEndOfATreeThatIsDeeperThanAnyText) {
    QoJsonNode root(json_new(JSON_NODE));
    JSONNODE* innermost = root.get();
    for (int level = 0; level < 131000; ++level) {
        JSONNODE* child = json_new(JSON_NODE);
        json_set_name(child, "a");
        json_push_back(innermost, child);
        innermost = child;
    }
    JSONNODE* transient = qo_json_parse(R"({"doNotPersist":true})").release();
    json_set_name(transient, "t");
    json_push_back(innermost, transient);
    EXPECT_EQ(initializer_.TrimNonPersistentData(root.get()), 0);
    EXPECT_EQ(json_size(innermost), 0U);
}

TEST_F(TrimTest, ErasingEverySecondOfAHundredThousandMembersTakesOnePass) {
    std::string text = "{";
    for (int i = 0; i < 100000; ++i)
        text += (i == 0 ? "\"m" : ",\"m") + std::to_string(i) + (i % 2 == 0 ? R"(":{"doNotPersist":true})" : "\":1");
    const QoJsonNode node = qo_json_parse(text + "}");
    const std::clock_t start = std::clock();  // processor time: other tests run beside this one
    EXPECT_EQ(initializer_.TrimNonPersistentData(node.get()), 0);
    EXPECT_LT((std::clock() - start) / CLOCKS_PER_SEC, 2);
    EXPECT_EQ(json_size(node.get()), 50000U);
    EXPECT_EQ(qo_json_name(json_at(node.get(), 49999)), "m99999");
}

}  // namespace
