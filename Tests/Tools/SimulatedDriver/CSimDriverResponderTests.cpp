// Whole messages in, reply bytes out: the four message ids, both byte orders, the legacy
// form within the room of the request, and no reply at all for anything malformed.
#include "Tools/SimulatedDriver/CSimDriverResponder.h"

#include "Mac/Common/Communication/MessageIDs.h"
#include "Mac/Common/Communication/TransitRecord.h"
#include "Tests/Tools/SimulatedDriver/SimDriverTestSupport.h"
#include "Tools/SimulatedDriver/CSimulatedDriver.h"

#include <AE/AEDataModel.h>
#include <AE/AERegistry.h>
#include <AE/AppleEvents.h>

#include <gtest/gtest.h>

using namespace SimDriverTest;

namespace
{
std::optional<std::vector<std::uint8_t>> Send(CSimulatedDriver& driver, std::int32_t msgid,
                                              const std::vector<std::uint8_t>& bytes)
{
    CSimDriverResponder responder(driver);
    SSimMessage message;
    responder.Read(msgid, bytes.empty() ? nullptr : bytes.data(), bytes.size(), message);
    std::string outcome;
    return responder.Answer(message, outcome);
}

std::uint32_t Order(std::uint32_t value, bool reverse)
{
    return reverse ? __builtin_bswap32(value) : value;
}

// A transit record as the coordinator sends it to a driver of that order: every field
// through the flipper, the data as it is.
std::vector<std::uint8_t> TransitRecordBytes(ECommand command, const std::vector<SKey>& keys,
                                             const std::vector<std::uint8_t>& data, bool reverse)
{
    TransitRecord record{};
    for (size_t i = 0; i < keys.size(); ++i)
    {
        record.keys[i].mode = Order(keys[i].mode, reverse);
        record.keys[i].identifier = reverse ? __builtin_bswap16(keys[i].identifier)
                                            : static_cast<std::uint16_t>(keys[i].identifier);
        record.keys[i].reference = Order(keys[i].reference, reverse);
    }
    record.sizeOfData = Order(static_cast<std::uint32_t>(data.size()), reverse);
    record.command = Order(command, reverse);
    std::vector<std::uint8_t> bytes(kTransitRecordHeaderSize + data.size());
    std::memcpy(bytes.data(), &record, kTransitRecordHeaderSize);
    if (!data.empty())
    {
        std::memcpy(bytes.data() + kTransitRecordHeaderSize, data.data(), data.size());
    }
    return bytes;
}

struct SReturn
{
    std::uint32_t status;
    std::uint32_t size;
    std::vector<std::uint8_t> data;
};

SReturn ReadReturn(const std::vector<std::uint8_t>& reply, bool reverse)
{
    TransitRecordReturn record{};
    EXPECT_GE(reply.size(), kTransitRecordReturnSize);
    std::memcpy(&record, reply.data(), kTransitRecordReturnSize);
    return {Order(record.wStatus, reverse), Order(record.returnDataSize, reverse),
            std::vector<std::uint8_t>(reply.begin() + kTransitRecordReturnSize, reply.end())};
}

const std::vector<SKey> kSystemIDOfTablet0 = {
    {EObjectIDDriver}, LocalTablet(0), {EParameterIDTabletSystemID}};
} // namespace

TEST(CSimDriverResponder, SilentProbeAndUnknownIDsGetNoReplyData)
{
    SSimDriverConfig config = TwoTabletConfig();
    config.endiannessCode = -1;
    CSimulatedDriver silent(config);
    EXPECT_FALSE(Send(silent, kMessageIDEndianness, {}));
    EXPECT_FALSE(Send(silent, 'XYZW', {1, 2, 3}));
}

TEST(CSimDriverResponder, TransitRecordsAreReadAndAnsweredInTheDriversOrderWithinTheirRoom)
{
    for (bool reverse : {false, true})
    {
        SSimDriverConfig config = TwoTabletConfig();
        config.otherByteOrder = reverse;
        CSimulatedDriver driver(config);

        // Set the ID through a record: the driver must read keys, command and size right.
        std::optional<std::vector<std::uint8_t>> reply =
            Send(driver, kMessageIDTransitRecord,
                 TransitRecordBytes(ECommandSet, kSystemIDOfTablet0, Bytes<std::uint16_t>(0x0102),
                                    reverse));
        ASSERT_TRUE(reply);
        EXPECT_EQ(ReadReturn(*reply, reverse).status, KELSTATUS_SUCCESS);
        ASSERT_EQ(driver.Tablets()[0].systemID, 0x0102);

        // Two bytes of room: the answer fits, in the coordinator's order.
        reply = Send(driver, kMessageIDTransitRecord,
                     TransitRecordBytes(ECommandGet, kSystemIDOfTablet0, {0, 0}, reverse));
        ASSERT_TRUE(reply);
        SReturn result = ReadReturn(*reply, reverse);
        EXPECT_EQ(result.status, KELSTATUS_SUCCESS);
        EXPECT_EQ(result.size, 2u);
        EXPECT_EQ(result.data, Bytes<std::uint16_t>(0x0102));

        // No room: the reply holds no data, and says how much the answer was.
        reply = Send(driver, kMessageIDTransitRecord,
                     TransitRecordBytes(ECommandGet, kSystemIDOfTablet0, {}, reverse));
        ASSERT_TRUE(reply);
        result = ReadReturn(*reply, reverse);
        EXPECT_EQ(reply->size(), kTransitRecordReturnSize);
        EXPECT_EQ(result.size, 2u);

        // Failures travel in the return record.
        reply =
            Send(driver, kMessageIDTransitRecord,
                 TransitRecordBytes(
                     ECommandSet, {{EObjectIDDriver}, LocalTablet(9), {EParameterIDTabletSystemID}},
                     Bytes<std::uint16_t>(1), reverse));
        ASSERT_TRUE(reply);
        EXPECT_EQ(ReadReturn(*reply, reverse).status, KELSTATUS_OBJECT_NOT_FOUND);
    }
}

TEST(CSimDriverResponder, MalformedTransitRecordsGetNoReply)
{
    CSimulatedDriver driver(TwoTabletConfig());
    std::vector<std::uint8_t> good =
        TransitRecordBytes(ECommandGet, kSystemIDOfTablet0, {0, 0}, false);
    ASSERT_TRUE(Send(driver, kMessageIDTransitRecord, good));

    std::vector<std::uint8_t> shortHeader(good.begin(), good.begin() + 135);
    EXPECT_FALSE(Send(driver, kMessageIDTransitRecord, shortHeader));

    // Announces ten bytes of data and carries four.
    std::vector<std::uint8_t> missing =
        TransitRecordBytes(ECommandGet, kSystemIDOfTablet0, std::vector<std::uint8_t>(10), false);
    missing.resize(kTransitRecordHeaderSize + 4);
    EXPECT_FALSE(Send(driver, kMessageIDTransitRecord, missing));

    std::vector<std::uint8_t> huge = good;
    const std::uint32_t tooMuch = 0x10000;
    std::memcpy(huge.data() + offsetof(TransitRecord, sizeOfData), &tooMuch, 4);
    EXPECT_FALSE(Send(driver, kMessageIDTransitRecord, huge));

    EXPECT_FALSE(
        Send(driver, kMessageIDTransitRecord,
             TransitRecordBytes(static_cast<ECommand>(10), kSystemIDOfTablet0, {}, false)));
    EXPECT_FALSE(Send(driver, kMessageIDTransitRecord,
                      TransitRecordBytes(ECommandGet,
                                         {{EObjectIDDriver, 0, static_cast<EAddressingMode>(7)}},
                                         {}, false)));
    EXPECT_FALSE(Send(
        driver, kMessageIDTransitRecord,
        TransitRecordBytes(ECommandGet, {{static_cast<EEventIdentifier>(0xFFFF)}}, {}, false)));
    // Ten keys are more than a packet holds.
    std::vector<SKey> tenKeys(10, SKey{EObjectIDDriver});
    EXPECT_FALSE(
        Send(driver, kMessageIDTransitRecord, TransitRecordBytes(ECommandGet, tenKeys, {}, false)));

    // A string key arrives without its string (only the reference travels).
    std::optional<std::vector<std::uint8_t>> reply =
        Send(driver, kMessageIDTransitRecord,
             TransitRecordBytes(ECommandGet,
                                {{EObjectIDDriver, 0x1234, EAddrModeByString}, {EParameterIDName}},
                                std::vector<std::uint8_t>(64), false));
    ASSERT_TRUE(reply);
    EXPECT_EQ(ReadReturn(*reply, false).status, KELSTATUS_SUCCESS);
}

TEST(CSimDriverResponder, AppleEventsGetAReplyWithErrnFirstAndTheDriversName)
{
    AppleEvent event;
    ASSERT_EQ(AECreateAppleEvent(kAECoreSuite, kAEGetData, nullptr, kAutoGenerateReturnID,
                                 kAnyTransactionID, &event),
              noErr);
    std::vector<std::uint8_t> flat(static_cast<size_t>(AESizeOfFlattenedDesc(&event)));
    Size written = 0;
    ASSERT_EQ(AEFlattenDesc(&event, reinterpret_cast<Ptr>(flat.data()),
                            static_cast<Size>(flat.size()), &written),
              noErr);
    AEDisposeDesc(&event);

    SSimDriverConfig config = TwoTabletConfig();
    config.appleEventErrorNumber = -1708;
    CSimulatedDriver driver(config);
    std::optional<std::vector<std::uint8_t>> reply = Send(driver, kMessageIDAppleEvent, flat);
    ASSERT_TRUE(reply);
    AppleEvent answer;
    ASSERT_EQ(AEUnflattenDescFromBytes(reply->data(), reply->size(), &answer), noErr);
    long count = 0;
    ASSERT_EQ(AECountItems(&answer, &count), noErr);
    ASSERT_EQ(count, 2);
    AEKeyword keyword = 0;
    AEDesc item;
    ASSERT_EQ(AEGetNthDesc(&answer, 1, typeWildCard, &keyword, &item), noErr);
    EXPECT_EQ(keyword, static_cast<AEKeyword>(keyErrorNumber));
    std::int32_t number = 0;
    AEGetDescData(&item, &number, sizeof(number));
    EXPECT_EQ(number, -1708);
    AEDisposeDesc(&item);
    char name[64] = {};
    Size size = 0;
    ASSERT_EQ(AEGetParamPtr(&answer, keyDirectObject, typeUTF8Text, nullptr, name, sizeof(name) - 1,
                            &size),
              noErr);
    EXPECT_EQ(std::string(name, static_cast<size_t>(size)), "Kelto test");
    AEDisposeDesc(&answer);

    config.appleEventReply = false;
    CSimulatedDriver silent(config);
    EXPECT_FALSE(Send(silent, kMessageIDAppleEvent, flat));
    std::vector<std::uint8_t> garbage(flat.begin(), flat.end() - 1);
    EXPECT_FALSE(Send(driver, kMessageIDAppleEvent, garbage));
}
