// The built-in default tree as data: one fragment per top-level member, in the order in which the tree has
// them. White space outside strings is only for the reader; getDefaultTree takes it out. A piece that stands
// in several places has a function of its own.

#include <array>
#include <string>
#include <string_view>

#include "qo_pushpull_initializer.h"

namespace {

// ---- pieces ----

std::string alert() {
    return R"({
        "timestampClear": null,
        "code": 0,
        "equipmentId": 0,
        "timestampLast": null,
        "timestampFirst": null,
        "optionalfieldData": "",
        "isStillActive": false,
        "priority": "minor",
        "notifyUser": false,
        "optionalfieldType": "null",
        "userMessageID": 0,
        "userMessage": "",
        "equipmentAddress": 0,
        "update": false,
        "clearableByUser": false,
        "count": 0,
        "notifyDealer": false,
        "equipmentType": 0,
        "clearableByDealer": true,
        "clearedBy": "device",
        "action": "clear"
    })";
}

std::string alert_meta() {
    return R"({
        "numClearedAlerts": 0,
        "numActiveAlerts": 0,
        "lastClearedAlertId": 0,
        "szClearedAlerts": 256,
        "firstClearedAlertId": 0,
        "numAlertsInActiveArray": 0
    })";
}

std::string alert_container() {
    return R"({
        "writeAccess": "openAll",
        "alertCmd": {"writeAccess": "openAll", "doNotPersist": true, "alert": )" +
           alert() + R"(},
        "devices": [{"id": 0, "equipmentAddress": 0, "meta": )" +
           alert_meta() + R"(}],
        "meta": )" +
           alert_meta() + R"(,
        "active": [{"doNotPersist": true, "maxItems": 256, "id": 0, "alert": )" +
           alert() + R"(}],
        "history": [{"maxItems": 256, "id": 0, "alert": )" +
           alert() + R"(}]
    })";
}

std::string access_point() { return R"({"ssid": "", "bssid": "", "rssi": 0, "security": "none", "password": ""})"; }

std::string network_status() {
    return R"({
        "linkUp": false,
        "linkSpeed": 0,
        "hostName": "",
        "macAddress": "",
        "dhcpEnabled": true,
        "ipAddress": "",
        "subnetMask": "",
        "gateway": "",
        "primaryDns": "",
        "secondaryDns": ""
    })";
}

std::string server_token() {
    return R"({"writeAccess": "openAll", "expiryTime": "", "encoded": "", "type": "pin", "issueTime": ""})";
}

std::string spare_io_of_system() {
    return R"([{
        "doNotPersist": true,
        "id": 0,
        "sensorFunction": {"function": "none"},
        "spareIOPort": "none",
        "deviceAddress": ""
    }])";
}

std::string spare_io_of_device() {
    return R"([{
        "doNotPersist": true,
        "maxItems": 4,
        "id": 0,
        "sensorDefinition": "none",
        "spareIOActiveStatus": "none",
        "spareIOPort": "none"
    }])";
}

std::string firmware_images() {
    return R"([{
        "id": 0,
        "deviceType": "",
        "deviceModel": "",
        "description": "",
        "hwRevision": "",
        "swRevision": "",
        "major": 0,
        "minor": 0,
        "build": 0,
        "size": 0,
        "path": "",
        "checksum": "",
        "timeOfUpdate": ""
    }])";
}

std::string parameter() {
    return R"({
        "name": "",
        "pid": 0,
        "defaultValue": "",
        "enabled": false,
        "value": "",
        "range": {"min": "", "max": "", "inc": ""},
        "radio": {"max": 0, "texts": [{"id": 0, "text": "", "value": 0}]},
        "deviceAddress": "",
        "unit": "unknown",
        "string": {"max": 0}
    })";
}

std::string feature() { return R"({"enabled": false, "feature": "unknown"})"; }

// ---- fragments ----

std::string center_button() { return R"("centerButton": {"status": "unknown", "doNotPersist": true})"; }

std::string logs() {
    return R"("logs": {
        "mapper": "",
        "debugloglevel": "notice",
        "writeAccess": "remote",
        "flush": "",
        "vexalog": "disable"
    })";
}

std::string system_controller() {
    return R"("system": {
        "info": {
            "writeAccess": "remote",
            "address": {
                "writeAccess": "remote",
                "streetAddress2": "",
                "streetAddress1": "",
                "zip": "",
                "city": "",
                "country": "US",
                "longitude": 0,
                "phone": "",
                "state": 0,
                "latitude": 0
            },
            "name": "System",
            "storename": "Store"
        },
        "status": {
            "writeAccess": "local",
            "doNotPersist": true,
            "numberOfDevices": 1,
            "productLoadTimer": 0,
            "subState": "POWER_DOWN",
            "integrationCard": "NOT INSTALLED",
            "primaryHumidityValue": -1,
            "systemTemperatureC": 25.5,
            "state": "POWER_DOWN",
            "screenLock": "UNLOCK",
            "systemWideVersion": 0,
            "door": "open",
            "systemTemperature": 77,
            "defrostCycles": 0,
            "operatingMode": "undefined"
        },
        "errors": )" +
           alert_container() + R"(,
        "szCompatibleFeatures": 0,
        "remoteConnection": {
            "writeAccess": "openAll",
            "doNotPersist": true,
            "remoteStatus": "",
            "remoteIP": "",
            "ethernetMAC": ""
        },
        "parameters": [{"id": 0, "parameter": )" +
           parameter() + R"(}],
        "compatibleFeatures": [{"id": 0, "compatibleFeature": )" +
           feature() + R"(}],
        "infoalerts": )" +
           alert_container() + R"(,
        "clock": {
            "writeAccess": "openAll",
            "setRtcTime": "",
            "tz": "Non-Standard",
            "format": "12hour",
            "localSetRtcTime": "",
            "enableDst": false,
            "dstOffset": 0,
            "offset": -21600
        },
        "primarySpareIORead": )" +
           spare_io_of_system() + R"(,
        "primarySpareIOWrite": )" +
           spare_io_of_system() + R"(,
        "time": {"doNotPersist": true, "currentTime": "", "sysUpTime": 0},
        "wifiDirect": {
            "APDetails": {
                "status": "disabled",
                "numberOfConnections": 0,
                "ssid": "",
                "ssidBroadcastStatus": "disabled",
                "p2pSubnetMask": "255.255.255.0",
                "connectedDevices": [{
                    "id": 0,
                    "deviceName": "",
                    "deviceMac": "",
                    "deviceIp": "",
                    "deviceStatus": "INACTIVE"
                }],
                "mac": "00:00:00:00:00:00",
                "p2pIp": "192.0.2.1",
                "mode": "unknown",
                "popupStatus": "unknown",
                "p2pStatus": "disabled"
            },
            "wifiDirectConfig": {"doNotPersist": true, "command": "unknown", "value": ""}
        },
        "registration": {"state": "not registered", "eula": "accepted", "statusMsg": ""},
        "alarms": )" +
           alert_container() + R"(,
        "config": {
            "writeAccess": "openAll",
            "name": "System",
            "language": "english",
            "centralMode": false,
            "temperatureUnit": "F",
            "circulateTime": 35.0,
            "humidificationMode": "basic",
            "enhancedDehumidificationOvercoolingC": 1,
            "enhancedDehumidificationOvercoolingF": 2,
            "vrtGroupId": 1,
            "trebonMode": false,
            "dehumidificationMode": "auto"
        },
        "ports": [{
            "id": 0,
            "port": {
                "name": "",
                "valid": false,
                "boardId": 0,
                "enabled": false,
                "modelNumber": "unknown",
                "address": "",
                "hwRevision": "unknown",
                "swRevision": "unknown",
                "type": "unknown",
                "partNumber": "unknown"
            }
        }],
        "szParameters": 0
    })";
}

std::string private_node() {
    return R"("privateNode": {
        "writeAccess": "internal",
        "wifi": {"pin": ""},
        "expert": {"pin": ""},
        "basic": {"pin": ""}
    })";
}

std::string parameter_reset() {
    return R"("parameterReset": {"doNotPersist": true, "writeAccess": "remote", "resetAll": false, "et": 0})";
}

std::string system_command_request() {
    return R"("systemCommandRequest": {
        "doNotPersist": true,
        "reboot": "NONE",
        "reboot_status": "NONE",
        "date": ""
    })";
}

std::string remote_status() {
    return R"("remoteStatus": {
        "doNotPersist": true,
        "sysIdAssigned": "interrogation_fail",
        "kivoService": "unreachable",
        "ethStatus": "not_connected",
        "inetAvailable": "not_available",
        "remoteWebserverType": "dev",
        "tunnelIpSet": "openvpn_fail",
        "ipAssigned": "not_assigned",
        "sysRegistered": "unregistered",
        "rmtServerOnline": "no_ip_addr"
    })";
}

std::string usb() { return R"("usb": {"state": "disconnected", "mounted": false, "mode": "fwm", "unmounted": false})"; }

std::string remote_gateway() {
    return R"("rgw": {
        "writeAccess": "openAll",
        "status": {
            "doNotPersist": true,
            "writeAccess": "openAll",
            "pingInProgress": false,
            "relayServerConnected": false,
            "internetStatus": false,
            "rgwUp": false
        },
        "regPin": {"pin": ""},
        "aapState": "unregistered",
        "diagnostics": [{
            "doNotPersist": true,
            "id": 0,
            "remotePort": 0,
            "localPort": 0,
            "connName": "",
            "remoteAddress": "",
            "activeOpens": 0,
            "localAddress": "",
            "attemptFails": 0
        }],
        "command": {"doNotPersist": true, "writeAccess": "openAll", "code": "noCmd", "payload": ""},
        "configSec": {
            "pingDuration": 60000,
            "connectTimeout": 5000,
            "shortPollRemUser": 5000,
            "weatherEpId": "00000000-0000-0000-0000-000000000000",
            "shortPollPeriod": 53000,
            "relayServerPort": 80,
            "longPollTime": 20000,
            "maxConnectAttempts": 60,
            "backOffTime": 60000,
            "respTimeout": 24000,
            "pingInterval": 15000,
            "pingUrl": "ping.example.com",
            "relayServerUrl": "relay.example.com",
            "urlsConfigured": false,
            "connectRetryPeriod": 5000
        }
    })";
}

std::string dbus_notifications() {
    return R"("nmDbusNotifications": {"status": false, "objPath": "", "signalType": "unknown"})";
}

std::string download_manager() { return R"("dlm": {"dlmFw": {"stop_dl": false, "init_dl": false, "dl_done": false}})"; }

std::string version() { return R"("version": {"schemaVersion": "0.0"})"; }

std::string siblings() {
    return R"("siblings": [{
        "doNotPersist": true,
        "writeAccess": "openAll",
        "maxItems": 16,
        "id": 0,
        "selfIdentifier": "",
        "sibling": {
            "doNotPersist": true,
            "writeAccess": "openAll",
            "ipAddressType": "ipv4",
            "timeAdded": "",
            "groupCountTracker": false,
            "linkUpCount": 0,
            "linkState": "down",
            "systemName": "",
            "nodePresent": false,
            "portNumber": 0,
            "identifier": "",
            "ipAddress": ""
        }
    }])";
}

std::string kivo_log() {
    return R"("kivoLog": {
        "doNotPersist": true,
        "transactionLogs": {"chSrc": "", "oldValue": "", "paramId": "", "newValue": ""},
        "logType": "unknown",
        "alarmLogs": {
            "chSrc": "",
            "paramId": "",
            "alarmStatus": "",
            "alarmEVAddress": "",
            "alarmStatusChangeTime": ""
        },
        "deviceAddress": ""
    })";
}

std::string interfaces() {
    return R"("interfaces": [{
        "writeAccess": "openAll",
        "maxItems": 8,
        "id": 0,
        "info": {
            "doNotPersist": true,
            "status": )" +
           network_status() + R"(,
            "apDetails": )" +
           access_point() + R"(,
            "diagnostics": {
                "signalLevel": 0,
                "noiseLevel": 0,
                "linkQuality": 0,
                "rxBytes": 0,
                "txBytes": 0,
                "rxPackets": 0,
                "txPackets": 0,
                "rxErrors": 0,
                "txErrors": 0,
                "rxDropped": 0,
                "txDropped": 0,
                "collisions": 0
            }
        },
        "wifiStatus": {"doNotPersist": true, "status": "disassociated"},
        "backupDetails": {
            "apDetails": )" +
           access_point() + R"(,
            "networkStatus": )" +
           network_status() + R"(
        },
        "scannedList": [{"doNotPersist": true, "id": 0, "apDetails": )" +
           access_point() + R"(}],
        "config": {
            "doNotPersist": true,
            "staticConfig": {
                "enabled": false,
                "ipAddress": "",
                "subnetMask": "",
                "gateway": "",
                "primaryDns": "",
                "secondaryDns": ""
            },
            "apDetails": )" +
           access_point() + R"(,
            "command": "unknown"
        },
        "adapterType": "unknown"
    }])";
}

std::string reset_kivo() { return R"("resetKivo": {"doNotPersist": true, "state": "run"})"; }

std::string led_error_type() { return R"("ledErrorType": {"errorType": "NOERROR", "isError": false})"; }

std::string error_recovery() {
    return R"("errorRecovery": {
        "errorDetails": [{
            "writeAccess": "openAll",
            "maxItems": 20,
            "id": 0,
            "errorCode": 0,
            "resetProcessCount": {"count": 0, "maxCount": 5},
            "errorCount": 0,
            "componentId": 0,
            "maxErrorCount": 5
        }],
        "logError": {"doNotPersist": true, "errorCode": 0, "componentId": 0},
        "kivoResetCount": {"count": 0, "maxCount": 5},
        "resetProcess": {"doNotPersist": true, "componentId": 0}
    })";
}

std::string user_access() {
    return R"("userAccess": {
        "passcode": {"pin": ""},
        "changeBasicPin": {"pin": ""},
        "changeExpertPin": {"pin": ""}
    })";
}

std::string server_assigned() {
    return R"("serverAssigned": {
        "writeAccess": "openAll",
        "claimStatus": "unclaimed",
        "urlsSec": {
            "writeAccess": "openAll",
            "dataUpload": "http://services.example.com:80/kivo/v1/systems",
            "notification": "http://services.example.com:80/kivo/v1/systems",
            "firmwareDownload": "http://services.example.com:80/kivo/v1/systems"
        },
        "identities": {
            "writeAccess": "openAll",
            "sysId": "VRTSerialNumber",
            "pin": )" +
           server_token() + R"(
        },
        "security": {
            "writeAccess": "openAll",
            "certificateToken": )" +
           server_token() + R"(,
            "userToken": )" +
           server_token() + R"(,
            "vrtToken": )" +
           server_token() + R"(
        }
    })";
}

std::string firmware_management() {
    return R"("fwm": {
        "fwmFiles": [{
            "writeAccess": "remote",
            "doNotPersist": true,
            "id": 0,
            "major": 0,
            "description": "",
            "deviceModel": "",
            "build": 0,
            "path": "",
            "minor": 0,
            "size": 0
        }],
        "fwmUsbDlInfo": {"doNotPersist": true, "percentagedownload": 0},
        "fwmdownloadinfo": [{
            "id": 0,
            "currentbytes": 0,
            "src": "",
            "Qid": 0,
            "dst": "",
            "percentagedownload": 0,
            "totalbytes": 0
        }],
        "fwmdevupdate": {
            "writeAccess": "remote",
            "doNotPersist": true,
            "id": 0,
            "deviceName": "",
            "progress": 0,
            "path": "",
            "deviceAddress": "",
            "upgradeSwRevision": ""
        },
        "fwmversiondetails": [{
            "id": 0,
            "major": 0,
            "timeOfUpdate": "",
            "description": "",
            "deviceModel": "",
            "build": 0,
            "minor": 0,
            "size": 0
        }],
        "fwmusbupdate": {
            "source": "",
            "fw_USB_available": false,
            "packagedetails": )" +
           firmware_images() + R"(,
            "fw_USB_authorized": false
        },
        "fwminternal": {"stop_dl": false, "devPend": 0},
        "fwmUI": {
            "writeAccess": "local",
            "doNotPersist": true,
            "usb_updatereq": false,
            "flashLED": false,
            "check_fw": false
        },
        "fwmalarminfo": {
            "alarminfo": [{
                "id": 0,
                "tstat_alarm_msg": {
                    "code": 0,
                    "equipmentId": 0,
                    "equipmentType": 0,
                    "equipmentAddress": 0,
                    "deviceAddress": "",
                    "priority": "minor",
                    "message": "",
                    "timestamp": null,
                    "isStillActive": false
                }
            }]
        },
        "fwmdevimagesInt": {"binary": )" +
           firmware_images() + R"(},
        "fwmdevimages": {"binary": )" +
           firmware_images() + R"(},
        "fwmAutoOn": {"writeAccess": "local", "auto_on": true}
    })";
}

std::string devices() {
    return R"("devices": [{
        "writeAccess": "openAll",
        "maxItems": 16,
        "id": 0,
        "device": {
            "status": {
                "writeAccess": "local",
                "doNotPersist": true,
                "superheatTemperatureC": 25.5,
                "humidityValue": -1,
                "sstCalculationC": 25.5,
                "primaryTemperature": 77,
                "auxiliaryTemperatureC": 25.5,
                "evapSuctionPressureBar": 0.0,
                "primaryTemperatureC": 25.5,
                "auxiliaryTemperature": 77,
                "suctionTemperature": 77,
                "currentEEVStepPosition": 0,
                "boardVoltage": 0,
                "superheatTemperature": 77,
                "lengthLastDefrost": 0,
                "evapSuctionPressurePa": 0,
                "coilTemperature": 77,
                "coilTemperatureC": 25.5,
                "suctionTemperatureC": 25.5,
                "sstCalculation": 77,
                "softwareVersion": "",
                "evapSuctionPressurePsia": 0,
                "evapSuctionPressure": 0
            },
            "deviceName": "",
            "swLastUpdateTime": null,
            "deviceAddress": "",
            "features": [{
                "id": 0,
                "feature": {
                    "name": "",
                    "fid": 0,
                    "enabled": false,
                    "defaultValue": "",
                    "value": "",
                    "deviceAddress": ""
                }
            }],
            "parameters": [{"id": 0, "parameter": )" +
           parameter() + R"(}],
            "valveType": "CAREL",
            "szFeatures": 0,
            "relayOperationMode": {
                "doNotPersist": true,
                "relay_fan": "unknown",
                "relay_defrost": "unknown",
                "relay_alarm": "unknown",
                "relay_spare": "unknown",
                "relay_solenoid": "unknown",
                "opMode": "unknown",
                "relay_two_speed": "unknown",
                "relay_exv": "unknown",
                "relay_compressor": "unknown"
            },
            "spareIORead": )" +
           spare_io_of_device() + R"(,
            "spareIOWrite": )" +
           spare_io_of_device() + R"(,
            "szParameters": 0,
            "deviceType": "KIVO",
            "doorSwitchConfig": "NO",
            "swRevision": ""
        }
    }])";
}

std::string kivo_wifi() {
    return R"("nmKivowifi": {
        "doNotPersist": true,
        "writeAccess": "openAll",
        "serviceType": "",
        "p2pClientIp": "",
        "serialNumber": "",
        "state": "idle",
        "command": "unknown",
        "mode": "unknown",
        "subnetMask": "",
        "p2pGroupOwnerIp": "",
        "portNumber": 0,
        "localHostName": ""
    })";
}

std::string command() {
    return R"("command": {
        "doNotPersist": true,
        "writeAccess": "openAll",
        "status": "none",
        "request": "",
        "cmdID": 0,
        "deviceAddress": ""
    })";
}

std::string parameter_update() {
    return R"("parameterUpdate": {
        "doNotPersist": true,
        "writeAccess": "remote",
        "pid": 0,
        "value": "",
        "et": 0,
        "deviceAddress": ""
    })";
}

std::string error() { return R"("error": [{"doNotPersist": true, "id": 0, "code": 0, "message": ""}])"; }

std::string connection_management() {
    return R"("connectionManagement": [{
        "doNotPersist": true,
        "writeAccess": "openAll",
        "id": 0,
        "connectedDeviceInfo": {
            "deviceIp": "",
            "deviceMac": "",
            "deviceTimeoutCount": 0,
            "priorityNumber": 0,
            "deviceStatus": "INACTIVE",
            "numberOfSessions": 0
        }
    }])";
}

std::array<std::string, 27> fragments() {
    return {
        center_button(),
        logs(),
        system_controller(),
        private_node(),
        parameter_reset(),
        system_command_request(),
        remote_status(),
        usb(),
        remote_gateway(),
        dbus_notifications(),
        download_manager(),
        version(),
        siblings(),
        kivo_log(),
        interfaces(),
        reset_kivo(),
        led_error_type(),
        error_recovery(),
        user_access(),
        server_assigned(),
        firmware_management(),
        devices(),
        kivo_wifi(),
        command(),
        parameter_update(),
        error(),
        connection_management(),
    };
}

// ---- assembly ----

bool is_white_space(char c) { return c == ' ' || c == '\n' || c == '\t'; }

void append_without_white_space(std::string& text, std::string_view fragment) {
    bool inside_string = false;
    bool escaped = false;
    for (const char c : fragment) {
        if (inside_string || !is_white_space(c)) text += c;
        if (c == '"' && !escaped) inside_string = !inside_string;
        escaped = c == '\\' && !escaped;
    }
}

}  // namespace

void getDefaultTree(std::string& text) {
    text = "{";
    const char* separator = "";
    for (const std::string& fragment : fragments()) {
        text += separator;
        append_without_white_space(text, fragment);
        separator = ",";
    }
    text += "}";
}
