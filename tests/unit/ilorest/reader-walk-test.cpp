#include <new>
#include <stdexcept>

#include "reader-fixture.h"

namespace {

using Reader = ReaderTest;

}  // namespace

TEST_F(Reader, FirstWalk_LogsInWithTheStoredValues) {
    Walk();
    EXPECT_EQ(bridge->calls,
              (std::vector<std::string>{"init https://controller.test account password 3 10"}));
    Walk();
    EXPECT_EQ(bridge->calls.size(), 1U);  // the session is open
    reader->close();
    reader->init("https://other.test", "a", "", 1, 2);
    Walk();
    EXPECT_EQ(bridge->calls.back(), "init https://other.test a  1 2");
}

TEST_F(Reader, Init_OpensNothing) {
    EXPECT_TRUE(bridge->calls.empty());
    EXPECT_FALSE(reader->isiLOInitialized());
}

TEST_F(Reader, Walk_FillsTheSnapshotFromEmpty) {
    ServiceRoot root;
    root.addComputerSystem({"/old"}, {});
    EXPECT_TRUE(reader->readILoRest(root));
    EXPECT_EQ(root.systems.count("/old"), 0U);
    EXPECT_EQ(root.systems.size(), 1U);
}

TEST_F(Reader, NoSystems_IsAnEmptySnapshot) {
    bridge->resources[kSystemsPath] = Collection({});
    EXPECT_TRUE(Walk().systems.empty());
}

TEST_F(Reader, BridgeFailure_ClosesAndKeepsTheText) {
    bridge->failures[kStorage] = "get failed. value=10001";
    const std::string text =
        "iLoRestReader.readSystems failed.iLoRestReader.readComputerSystem failed."
        "iLoRestReader.readMirrorControllers failed.get failed. value=10001";
    EXPECT_EQ(WalkFailure(), text);
    EXPECT_EQ(iLoRestReader::lastFailure(), text);
    EXPECT_EQ(bridge->calls.back(), "close");
    EXPECT_FALSE(reader->isiLOInitialized());
}

TEST_F(Reader, FailureOfTheTwoNames_ResetsInstead) {
    for (const std::string name : {"HpIloChifPacketExchangeError", "InvalidCredentialsError"}) {
        for (const std::string& where : {std::string("init"), kSystemsPath}) {
            bridge->calls.clear();
            bridge->initialized = false;
            bridge->failures = {{where, "x " + name + " y"}};
            const std::string text =
                (where == "init" ? "" : "iLoRestReader.readSystems failed.") + ("x " + name + " y");
            EXPECT_EQ(WalkFailure(), text);
            EXPECT_EQ(bridge->calls.size(), 2U);
            EXPECT_EQ(bridge->calls.back(), "reset");
        }
    }
}

TEST_F(Reader, LogInFailure_IsPassedOnAsItIs) {
    bridge->failures["init"] = "initialize failed. %s";
    EXPECT_EQ(WalkFailure(), "initialize failed. %s");
    EXPECT_EQ(iLoRestReader::lastFailure(), "initialize failed. %s");
    EXPECT_EQ(bridge->calls.back(), "close");
    EXPECT_TRUE(bridge->fetched.empty());
}

TEST_F(Reader, FailureOfTheClose_IsSwallowed) {
    bridge->failures = {{kSystemsPath, "get failed."}, {"close", "close failed."}};
    EXPECT_EQ(WalkFailure(), "iLoRestReader.readSystems failed.get failed.");
    EXPECT_EQ(iLoRestReader::lastFailure(), "iLoRestReader.readSystems failed.get failed.");
}

TEST_F(Reader, ParseFailure_IsTreatedAsABridgeFailure) {
    bridge->resources[kSystemsPath] = "";
    EXPECT_EQ(WalkFailure(), "iLoRestReader.readSystems failed.");
    EXPECT_EQ(iLoRestReader::lastFailure(), "iLoRestReader.readSystems failed.");
    EXPECT_EQ(bridge->calls.back(), "close");
    ASSERT_EQ(Trace().size(), 1U);
    EXPECT_EQ(Trace()[0].find("<VK0999> [TR] ilorest-reader N rapidjson"), 0U);
}

TEST_F(Reader, StandardException_ThrowsTheReadersOwnText) {
    bridge->failures["x"] = "earlier";
    const std::string before = iLoRestReader::lastFailure();
    for (const bool outOfMemory : {false, true}) {
        bridge->calls.clear();
        bridge->onFetch = [&](const std::string& path) {
            if (path == kStorage) {
                if (outOfMemory) {
                    throw std::bad_alloc();
                }
                throw std::runtime_error("unexpected");
            }
        };
        ServiceRoot root;
        std::string text;
        try {
            reader->readILoRest(root);
        } catch (char* thrown) {
            text = thrown;
        }
        EXPECT_TRUE(std::regex_match(
            text, std::regex("ilorest-reader [1-9][0-9]* iLoRestReader failed\\."
                             "\\(fnc=get para1=/redfish/v1/Systems/1/Storage/ para2= para3=\\)")))
            << text;
        EXPECT_EQ(bridge->calls[bridge->calls.size() - 2], "clearError");
        EXPECT_EQ(bridge->calls.back(), "close");
        EXPECT_TRUE(root.systems.empty());
        EXPECT_EQ(iLoRestReader::lastFailure(), before);
        EXPECT_TRUE(Trace().empty());
    }
}

TEST_F(Reader, StandardExceptionWithAnEndlessParameter_IsCutToTheBuffer) {
    const std::string path = "/" + std::string(5000, 'p') + "%s/";
    bridge->resources[kSystemsPath] = Collection({path});
    bridge->onFetch = [&](const std::string& fetched) {
        if (fetched != kSystemsPath) {
            throw std::runtime_error("unexpected");
        }
    };
    ServiceRoot root;
    std::string text;
    try {
        reader->readILoRest(root);
    } catch (const char* thrown) {
        text = thrown;
    }
    EXPECT_EQ(text.size(), 1023U);
    EXPECT_NE(text.find("(fnc=get para1=/ppp"), std::string::npos);
}

TEST_F(Reader, NotReadyResource_IsFetchedAgainAfterAWait) {
    bridge->firstAnswers[kStorage] = {kNotReadyText, kMissingText};
    Walk();
    EXPECT_EQ(bridge->fetched,
              (std::vector<std::string>{kSystemsPath, kStorage, kStorage, kStorage, kArray}));
    EXPECT_EQ(wait.waits, (std::vector<unsigned>{10000, 10000}));
    EXPECT_TRUE(Trace().empty());
}

TEST_F(Reader, CollectionThatNeverGetsReady_IsParsedAfterFiveFetchesAndFails) {
    for (const std::string& answer : {kNotReadyText, kMissingText}) {
        bridge->fetched.clear();
        wait.waits.clear();
        bridge->resources[kSystemsPath] = answer;
        EXPECT_EQ(WalkFailure(), "iLoRestReader.readSystems failed.");
        EXPECT_EQ(bridge->fetched, std::vector<std::string>(5, kSystemsPath));
        EXPECT_EQ(wait.waits, std::vector<unsigned>(5, 10000));
        EXPECT_EQ(Trace().back(),
                  "<VK0999> [TR] ilorest-reader N JSON Parsing failed - provided NVP (Members) not found");
    }
}

TEST_F(Reader, RedfishDriveThatNeverGetsReady_KeepsItsDefaults) {
    AddMr();
    bridge->resources[kMrDrives + "0"] = kNotReadyText;
    const ServiceRoot root = Walk();
    const DiskDrive& drive =
        root.systems.at(kSystem).mirror.controllers.at(kMr).diskDrives.at(kMrDrives + "0");
    EXPECT_EQ(drive.health, "OK");
    EXPECT_EQ(drive.state, "Enabled");
    EXPECT_EQ(drive.statusReasons, std::vector<std::string>{"None"});
    EXPECT_EQ(drive.endurance, 100);
    EXPECT_EQ(wait.waits.size(), 5U);
}

TEST_F(Reader, NotReadyRule_CanBeShortened) {
    reader->setNotReadyRule(2, 7);
    bridge->resources[kSystemsPath] = kNotReadyText;
    WalkFailure();
    EXPECT_EQ(bridge->fetched.size(), 2U);
    EXPECT_EQ(wait.waits, (std::vector<unsigned>{7, 7}));
    reader->setNotReadyRule(0, 7);
    bridge->fetched.clear();
    WalkFailure();
    EXPECT_EQ(bridge->fetched.size(), 1U);  // once at least
}

TEST_F(Reader, WithoutAStopRequest_NothingWaits) {
    reader->setEvt(nullptr);
    bridge->resources[kSystemsPath] = kNotReadyText;
    EXPECT_EQ(WalkFailure(), "iLoRestReader.readSystems failed.");
    EXPECT_EQ(bridge->fetched.size(), 5U);
    EXPECT_TRUE(wait.waits.empty());
}

TEST_F(Reader, StopDuringANotReadyWait_EndsTheWalkQuietly) {
    bridge->resources[kStorage] = kNotReadyText;
    wait.onWait = [](unsigned ms) { return ms == 10000; };
    ServiceRoot root;
    root.addComputerSystem({"/old"}, {});
    EXPECT_FALSE(reader->readILoRest(root));
    EXPECT_TRUE(root.systems.empty());
    EXPECT_EQ(wait.waits.size(), 1U);
    EXPECT_EQ(bridge->fetched, (std::vector<std::string>{kSystemsPath, kStorage}));
    EXPECT_TRUE(Trace().empty());
    EXPECT_TRUE(reader->isiLOInitialized());
}

TEST_F(Reader, StopBeforeAnyFetch_EndsTheWalkThere) {
    AddSmartStorage();
    AddMr();
    Walk();
    const std::vector<std::string> whole = bridge->fetched;
    ASSERT_EQ(whole.size(), 16U);
    const std::string before = iLoRestReader::lastFailure();
    bridge->calls.clear();
    for (std::size_t stopAt = 0; stopAt < whole.size(); ++stopAt) {
        bridge->fetched.clear();
        wait.stopped = false;
        wait.onWait = [&](unsigned) { return bridge->fetched.size() == stopAt; };
        ServiceRoot root;
        EXPECT_FALSE(reader->readILoRest(root)) << stopAt;
        EXPECT_TRUE(root.systems.empty());
        EXPECT_EQ(bridge->fetched, std::vector<std::string>(
                                       whole.begin(), whole.begin() + static_cast<std::ptrdiff_t>(stopAt)));
    }
    EXPECT_TRUE(bridge->calls.empty());  // neither closed nor reset
    EXPECT_EQ(iLoRestReader::lastFailure(), before);
    for (const std::string& line : Trace()) {
        EXPECT_EQ(line.find("failed"), std::string::npos) << line;
    }
    wait.stopped = false;
    wait.onWait = nullptr;
    EXPECT_EQ(Walk().systems.size(), 1U);
}

TEST_F(Reader, StopRequest_IsFeltWithTheRealEvent) {
    tovaserverutil::Event stop;
    tovaserverutil::StopWait real(&stop);
    reader->setEvt(&real);
    stop.Set();
    ServiceRoot root;
    EXPECT_FALSE(reader->readILoRest(root));
    EXPECT_FALSE(reader->readILoRest(root));
    EXPECT_TRUE(bridge->fetched.empty());
}

TEST_F(Reader, BadAlloc_PassesThroughTheSteps) {
    bridge->onFetch = [](const std::string&) { throw std::bad_alloc(); };
    DiskDrive drive;
    EXPECT_THROW(reader->readDiskDrive(*bridge, {"/d"}, drive), std::bad_alloc);
    EXPECT_THROW(reader->readBCMDiskDrive(*bridge, {"/d"}, drive), std::bad_alloc);
    wait.stopped = true;
    EXPECT_THROW(reader->readDiskDrive(*bridge, {"/d"}, drive), iLoRestReader::StopSeen);
    EXPECT_TRUE(Trace().empty());
}

TEST_F(Reader, Logger_IsHandedToTheBridgeAndMayBeMissing) {
    EXPECT_EQ(bridge->logger, &log);
    reader->writeLog("100% %s%n");
    EXPECT_EQ(Trace(), (std::vector<std::string>{"<VK0999> [TR] 100% %s%n"}));
    reader->setLogger(nullptr);
    EXPECT_EQ(bridge->logger, nullptr);
    reader->writeLog("nowhere");
    EXPECT_EQ(Trace().size(), 1U);
}

TEST_F(Reader, ForwardedOperations_ReachTheBridge) {
    reader->set_vNIC(true);
    EXPECT_TRUE(reader->get_vNIC());
    bridge->vnicAvail = "True";
    EXPECT_EQ(reader->is_vNIC_Avail("16.1.15.2", 4, 5), "True");
    reader->reset();
    reader->close();
    EXPECT_EQ(bridge->calls, (std::vector<std::string>{"isvNICAvail 16.1.15.2 4 5", "reset", "close"}));
    bridge->failures["close"] = "close failed.";
    EXPECT_THROW(reader->close(), const char*);
}

TEST_F(Reader, DefaultReader_OwnsABridgeOfItsOwn) {
    iLoRestReader plain;
    EXPECT_FALSE(plain.isiLOInitialized());
    EXPECT_EQ(plain.versionText(), "");
    EXPECT_EQ(plain.enduranceScale(), 1U);
    EXPECT_FALSE(plain.unknownGeneration());
}
