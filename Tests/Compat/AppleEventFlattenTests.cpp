#include <CoreServices/CoreServices.h>

#include <gtest/gtest.h>

#include <cstdint>
#include <vector>

namespace
{
std::vector<uint8_t> Flatten(const AEDesc& desc)
{
    std::vector<uint8_t> bytes(static_cast<size_t>(AESizeOfFlattenedDesc(&desc)));
    Size actual = 0;
    EXPECT_EQ(
        AEFlattenDesc(&desc, reinterpret_cast<Ptr>(bytes.data()), Size(bytes.size()), &actual),
        noErr);
    EXPECT_EQ(actual, Size(bytes.size()));
    return bytes;
}

void Put32(std::vector<uint8_t>& out, uint32_t v)
{
    out.insert(out.end(), {uint8_t(v >> 24), uint8_t(v >> 16), uint8_t(v >> 8), uint8_t(v)});
}

// An event with every kind of node: an address, plain parameters, a list holding a record.
void MakeRichEvent(AppleEvent* event)
{
    pid_t pid = 4321;
    AEDesc address, list, record;
    AECreateDesc(typeKernelProcessID, &pid, sizeof pid, &address);
    AECreateAppleEvent('Kelm', 'KSnd', &address, 17, 23, event);
    AEDisposeDesc(&address);

    SInt32 number = -1728;
    AEPutParamPtr(event, keyErrorNumber, typeSInt32, &number, 4);
    AEPutParamPtr(event, keyDirectObject, typeUTF8Text, "tablet", 6);
    AEPutParamPtr(event, 'empt', 'empt', nullptr, 0);

    AECreateList(nullptr, 0, true, &record);
    OSType tblt = 'Tblt';
    AEPutKeyPtr(&record, keyAEObjectClass, typeType, &tblt, 4);
    AECreateList(nullptr, 0, false, &list);
    AEPutDesc(&list, 0, &record);
    AEPutPtr(&list, 0, typeSInt16, "\x01\x02", 2);
    AEPutParamDesc(event, 'list', &list);
    AEDisposeDesc(&record);
    AEDisposeDesc(&list);
}

TEST(AppleEventFlattenTests, PlainDescriptorHasTheDocumentedLayout)
{
    AEDesc desc;
    const uint8_t data[3] = {0xAA, 0xBB, 0xCC};
    ASSERT_EQ(AECreateDesc('abcd', data, 3, &desc), noErr);
    std::vector<uint8_t> expected;
    Put32(expected, 'AEfl');
    Put32(expected, 'abcd');
    Put32(expected, 3);
    expected.insert(expected.end(), data, data + 3);
    EXPECT_EQ(Flatten(desc), expected);
    AEDisposeDesc(&desc);

    // A null descriptor is a node with no body; an empty list carries its zero count.
    AEInitializeDesc(&desc);
    expected.clear();
    Put32(expected, 'AEfl');
    Put32(expected, typeNull);
    Put32(expected, 0);
    EXPECT_EQ(Flatten(desc), expected);
    AECreateList(nullptr, 0, false, &desc);
    expected.clear();
    Put32(expected, 'AEfl');
    Put32(expected, typeAEList);
    Put32(expected, 4);
    Put32(expected, 0);
    EXPECT_EQ(Flatten(desc), expected);
    AEDisposeDesc(&desc);
}

TEST(AppleEventFlattenTests, NestedEventSurvivesTheRoundTrip)
{
    AppleEvent event;
    MakeRichEvent(&event);
    std::vector<uint8_t> bytes = Flatten(event);

    AppleEvent back;
    ASSERT_EQ(AEUnflattenDescFromBytes(bytes.data(), bytes.size(), &back), noErr);
    EXPECT_EQ(back.descriptorType, DescType(typeAppleEvent));
    EXPECT_EQ(Flatten(back), bytes);

    AEEventClass eventClass = 0;
    AEReturnID returnID = 0;
    AETransactionID transaction = 0;
    pid_t pid = 0;
    AEGetAttributePtr(&back, keyEventClassAttr, typeType, nullptr, &eventClass, 4, nullptr);
    AEGetAttributePtr(&back, keyReturnIDAttr, typeSInt16, nullptr, &returnID, 2, nullptr);
    AEGetAttributePtr(&back, keyTransactionIDAttr, typeSInt32, nullptr, &transaction, 4, nullptr);
    AEGetAttributePtr(&back, keyAddressAttr, typeKernelProcessID, nullptr, &pid, sizeof pid,
                      nullptr);
    EXPECT_EQ(eventClass, AEEventClass('Kelm'));
    EXPECT_EQ(returnID, 17);
    EXPECT_EQ(transaction, 23);
    EXPECT_EQ(pid, 4321);

    long count = 0;
    AECountItems(&back, &count);
    EXPECT_EQ(count, 4);
    Size size = -1;
    EXPECT_EQ(AEGetParamPtr(&back, 'empt', typeWildCard, nullptr, nullptr, 0, &size), noErr);
    EXPECT_EQ(size, 0);

    AEDesc list, record;
    ASSERT_EQ(AEGetParamDesc(&back, 'list', typeAEList, &list), noErr);
    ASSERT_EQ(AEGetNthDesc(&list, 1, typeAERecord, nullptr, &record), noErr);
    OSType code = 0;
    EXPECT_EQ(AEGetKeyPtr(&record, keyAEObjectClass, typeType, nullptr, &code, 4, nullptr), noErr);
    EXPECT_EQ(code, OSType('Tblt'));
    AEDisposeDesc(&record);
    AEDisposeDesc(&list);

    // The older call without a length reads what this process flattened itself.
    AEDesc again;
    ASSERT_EQ(AEUnflattenDesc(bytes.data(), &again), noErr);
    EXPECT_EQ(Flatten(again), bytes);
    AEDisposeDesc(&again);
    AEDisposeDesc(&back);
    AEDisposeDesc(&event);
}

TEST(AppleEventFlattenTests, SmallBufferIsRefusedWithTheSizeNeeded)
{
    SInt32 value = 1;
    AEDesc desc;
    AECreateDesc(typeSInt32, &value, 4, &desc);
    char buffer[15];
    Size actual = 0;
    EXPECT_EQ(AEFlattenDesc(&desc, buffer, sizeof buffer, &actual), errAEBufferTooSmall);
    EXPECT_EQ(actual, 16);
    AEDisposeDesc(&desc);
}

TEST(AppleEventFlattenTests, EveryTruncationAndExtensionIsCorruptData)
{
    AppleEvent event;
    MakeRichEvent(&event);
    std::vector<uint8_t> bytes = Flatten(event);
    AEDisposeDesc(&event);

    for (size_t length = 0; length < bytes.size(); ++length)
    {
        // A copy of exactly `length` bytes, so the sanitizers see any read past it.
        std::vector<uint8_t> cut(bytes.begin(), bytes.begin() + long(length));
        AEDesc result{typeSInt32, nullptr};
        EXPECT_EQ(AEUnflattenDescFromBytes(cut.data(), cut.size(), &result), errAECorruptData)
            << length;
        EXPECT_EQ(result.descriptorType, DescType(typeNull));
    }
    std::vector<uint8_t> longer = bytes;
    longer.push_back(0);
    AEDesc result;
    EXPECT_EQ(AEUnflattenDescFromBytes(longer.data(), longer.size(), &result), errAECorruptData);
}

TEST(AppleEventFlattenTests, LyingHeadersAreRefused)
{
    auto expectCorrupt = [](const std::vector<uint8_t>& bytes)
    {
        AEDesc result;
        EXPECT_EQ(AEUnflattenDescFromBytes(bytes.data(), bytes.size(), &result), errAECorruptData);
    };
    std::vector<uint8_t> bytes;
    Put32(bytes, 'XXfl'); // wrong magic
    Put32(bytes, typeNull);
    Put32(bytes, 0);
    expectCorrupt(bytes);

    bytes.clear(); // a null node with a body
    Put32(bytes, 'AEfl');
    Put32(bytes, typeNull);
    Put32(bytes, 1);
    bytes.push_back(0);
    expectCorrupt(bytes);

    bytes.clear(); // a list claiming a billion items in twelve bytes
    Put32(bytes, 'AEfl');
    Put32(bytes, typeAEList);
    Put32(bytes, 12);
    Put32(bytes, 1000000000);
    Put32(bytes, 0);
    Put32(bytes, 0);
    expectCorrupt(bytes);

    bytes.clear(); // an item longer than its list
    Put32(bytes, 'AEfl');
    Put32(bytes, typeAEList);
    Put32(bytes, 12);
    Put32(bytes, 1);
    Put32(bytes, typeSInt32);
    Put32(bytes, 4);
    expectCorrupt(bytes);
}

TEST(AppleEventFlattenTests, NestingIsBoundedAtSixtyFourLevels)
{
    // depth lists inside each other, built from the innermost out.
    auto nested = [](int depth)
    {
        std::vector<uint8_t> node;
        Put32(node, typeAEList);
        Put32(node, 4);
        Put32(node, 0);
        for (int i = 0; i < depth; ++i)
        {
            std::vector<uint8_t> outer;
            Put32(outer, typeAEList);
            Put32(outer, uint32_t(4 + node.size()));
            Put32(outer, 1);
            outer.insert(outer.end(), node.begin(), node.end());
            node.swap(outer);
        }
        std::vector<uint8_t> bytes;
        Put32(bytes, 'AEfl');
        bytes.insert(bytes.end(), node.begin(), node.end());
        return bytes;
    };
    AEDesc result;
    std::vector<uint8_t> ok = nested(64);
    EXPECT_EQ(AEUnflattenDescFromBytes(ok.data(), ok.size(), &result), noErr);
    AEDisposeDesc(&result);
    std::vector<uint8_t> deep = nested(65);
    EXPECT_EQ(AEUnflattenDescFromBytes(deep.data(), deep.size(), &result), errAECorruptData);
}
} // namespace
