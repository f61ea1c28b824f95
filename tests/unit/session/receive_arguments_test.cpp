// What the functions of receiving refuse, and with which words.
#include "receive_test.hpp"

namespace receive_test {
namespace {

constexpr const char* not_initialized = " Internal variable dev_shared_short is NULL.. Use Initialize() first.";

struct Function {
    const char* name;
    int (*call)(unsigned int device, unsigned int interface);
};
void PrintTo(const Function& function, std::ostream* out) {
    *out << function.name;
}

const Function functions[] = {
    {"SetOnDataReceivedHandler",
     [](unsigned int device, unsigned int interface) {
         return SetOnDataReceivedHandler(device, interface, Receiver::receive, nullptr);
     }},
    {"GetDataPacketsAvailable",
     [](unsigned int device, unsigned int interface) {
         return GetDataPacketsAvailable(device, interface, &some_number);
     }},
    {"FlushDataPackets", FlushDataPackets},
};

class Arguments : public Receiving, public testing::WithParamInterface<Function> {};

TEST_P(Arguments, ThatNameNoPadAreRefused) {
    for (const unsigned int device : {16U, 17U, 0x80000000U, 0xFFFFFFFFU}) {
        EXPECT_EQ(record_of(GetParam().call(device, 0)),
                  (Record{invalid_handle, GetParam().name,
                          "Incorrect input value device: " + std::to_string(static_cast<int>(device))}));
    }
}

TEST_P(Arguments, ThatNameNoInterfaceAreRefused) {
    for (const unsigned int interface : {8U, 9U, 0x80000000U, 0xFFFFFFFFU}) {
        EXPECT_EQ(record_of(GetParam().call(1, interface)),
                  (Record{invalid_handle, GetParam().name,
                          "Incorrect input value interface_number: " + std::to_string(static_cast<int>(interface))}));
    }
}

TEST_P(Arguments, AreRefusedBeforeTheStart) {
    Deinitialize();
    for (const unsigned int device : {1U, 17U}) {
        EXPECT_EQ(record_of(GetParam().call(device, 0)), (Record{invalid_parameter, GetParam().name, not_initialized}));
    }
}

TEST_P(Arguments, MayNameAPadThatWasNotFound) {
    EXPECT_EQ(GetParam().call(3, 7), 0);
    EXPECT_EQ(GetParam().call(15, 0), 0);
}

INSTANTIATE_TEST_SUITE_P(Functions, Arguments, testing::ValuesIn(functions),
                         [](const auto& tested) { return std::string(tested.param.name); });

class Start : public Receiving {
  protected:
    void expect_refused(unsigned int device, unsigned int interface, const std::string& line) {
        const LogCapture& log = overhear();
        EXPECT_EQ(SetDataReceivingEnabled(device, interface, 1), -1);
        const std::string message = "Error of starting thread of data receiving for device/end_point_id: " +
                                    std::to_string(static_cast<int>(device)) + "/" +
                                    std::to_string(static_cast<int>(interface));
        EXPECT_EQ(log.count("error: SetDataReceivingEnabled(): " + message), 1);
        EXPECT_GE(log.count(line), 1) << line;
        unsigned int newest = 0;
        for (unsigned int handle = 1; handle < 64; ++handle) {
            unsigned int code = 0;
            if (GetExceptionCode(handle, &code) == 0 && record_of(static_cast<int>(handle)).message == message) {
                newest = handle;
            } else {
                break;
            }
        }
        ASSERT_NE(newest, 0U);
        EXPECT_EQ(record_of(static_cast<int>(newest)), (Record{-1, "SetDataReceivingEnabled", message}));
    }
};

TEST_F(Start, OfAPadThatWasNotFoundFailsAndIsFiled) {
    expect_refused(3, 1, "error: start_thread(): Device 3 is not indexed");
    EXPECT_EQ(available(3, 1), preset);
}

TEST_F(Start, OfDevice16FailsAsNotIndexed) {
    expect_refused(16, 0, "error: start_thread(): Device 16 is not indexed");
}

TEST_F(Start, OfDevice17Fails) {
    expect_refused(17, 0, "error: start_thread(): Error: incorrect device value: 17");
}

TEST_F(Start, OfSlotZeroFailsForItIsNoPad) {
    expect_refused(0, 0, "error: start_thread(): Device 0 has not pad settings data");
    EXPECT_THAT(bus().log("hid_read"), IsEmpty());
}

TEST_F(Start, OfInterface8Fails) {
    expect_refused(1, 8, "error: start_thread(): Error: incorrect interface_number value: 8");
}

TEST_F(Start, BeforeInitializeFails) {
    Deinitialize();
    EXPECT_EQ(SetDataReceivingEnabled(1, 0, 1), -1);
    EXPECT_EQ(record_of(1), (Record{-1, "SetDataReceivingEnabled",
                                    "Error of starting thread of data receiving for device/end_point_id: 1/0"}));
}

TEST_F(Start, LeavesPadsAloneWhereItFails) {
    for (const unsigned int device : {0U, 3U, 16U, 17U, 0xFFFFFFFFU}) {
        EXPECT_EQ(SetDataReceivingEnabled(device, 0, 1), -1);
    }
    EXPECT_EQ(SetDataReceivingEnabled(1, 0xFFFFFFFFU, 1), -1);
    EXPECT_THAT(bus().log(), IsEmpty());
}

TEST_F(Start, AndStopAreLoggedWithTheirArguments) {
    const LogCapture& log = overhear();
    SetDataReceivingEnabled(3, 1, 7);
    SetDataReceivingEnabled(3, 1, 0);
    EXPECT_EQ(log.count("info: SetDataReceivingEnabled(): SetDataReceivingEnabled(3, 1, 7)"), 1);
    EXPECT_EQ(log.count("info: SetDataReceivingEnabled(): SetDataReceivingEnabled(3, 1, 0)"), 1);
}

TEST_F(Start, AStopOfWhateverSucceeds) {
    for (const unsigned int device : {0U, 1U, 3U, 16U, 17U, 0xFFFFFFFFU}) {
        for (const unsigned int interface : {0U, 7U, 8U, 0xFFFFFFFFU}) {
            EXPECT_EQ(SetDataReceivingEnabled(device, interface, 0), 0);
        }
    }
    Deinitialize();
    EXPECT_EQ(SetDataReceivingEnabled(1, 0, 0), 0);
}

TEST_F(Start, AStopBeforeInitializeSaysNothingOfItsArguments) {
    const auto stop = [](unsigned int device) {
        const LogCapture log;
        EXPECT_EQ(SetDataReceivingEnabled(device, 0, 0), 0);
        catch_removing_device(-20, device, 0); // asks to stop
        return log.count("Error: incorrect device value: 17");
    };
    EXPECT_EQ(stop(17), 2);
    EXPECT_EQ(stop(16), 0);
    Deinitialize();
    EXPECT_EQ(stop(17), 0);
}

TEST_F(Start, PacketsAvailableNeedsSomewhereToStoreThem) {
    EXPECT_EQ(record_of(GetDataPacketsAvailable(17, 0, nullptr)),
              (Record{invalid_parameter, "GetDataPacketsAvailable",
                      "Error of input parameters, unsigned int *result is NULL"}));
}

TEST_F(Start, PacketsAvailableBeforeItLeavesItsOutputUntouched) {
    EXPECT_EQ(available(), preset);
    EXPECT_EQ(available(2), preset);
}

} // namespace
} // namespace receive_test
