#include <CoreServices/CoreServices.h>

#include <gtest/gtest.h>

#include <cstdint>
#include <initializer_list>
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

// Big-endian 32-bit words.
std::vector<uint8_t> Words(std::initializer_list<uint32_t> words)
{
    std::vector<uint8_t> out;
    for (uint32_t v : words)
    {
        out.insert(out.end(), {uint8_t(v >> 24), uint8_t(v >> 16), uint8_t(v >> 8), uint8_t(v)});
    }
    return out;
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
    AEPutKeyDesc(event, 'list', &list);
    AEDisposeDesc(&record);
    AEDisposeDesc(&list);
}

TEST(AppleEventFlattenTests, PlainDescriptorHasTheDocumentedLayout)
{
    AEDesc desc;
    const uint8_t data[3] = {0xAA, 0xBB, 0xCC};
    ASSERT_EQ(AECreateDesc('abcd', data, 3, &desc), noErr);
    std::vector<uint8_t> expected = Words({'AEfl', 'abcd', 3});
    expected.insert(expected.end(), data, data + 3);
    EXPECT_EQ(Flatten(desc), expected);
    AEDisposeDesc(&desc);

    // A null descriptor is a node with no body; an empty list carries its zero count.
    AEInitializeDesc(&desc);
    EXPECT_EQ(Flatten(desc), Words({'AEfl', typeNull, 0}));
    AECreateList(nullptr, 0, false, &desc);
    EXPECT_EQ(Flatten(desc), Words({'AEfl', typeAEList, 4, 0}));
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
    const std::vector<uint8_t> lies[] = {
        Words({'XXfl', typeNull, 0}),                      // wrong magic
        Words({'AEfl', typeNull, 4, 0}),                   // a null node with a body
        Words({'AEfl', typeAEList, 12, 1000000000, 0, 0}), // a billion items in twelve bytes
        Words({'AEfl', typeAEList, 12, 1, typeSInt32, 4}), // an item longer than its list
    };
    for (const auto& bytes : lies)
    {
        AEDesc result;
        EXPECT_EQ(AEUnflattenDescFromBytes(bytes.data(), bytes.size(), &result), errAECorruptData)
            << &bytes - lies;
    }
}

TEST(AppleEventFlattenTests, NestingIsBoundedAtSixtyFourLevels)
{
    // depth lists inside each other, built from the innermost out.
    auto nested = [](int depth)
    {
        std::vector<uint8_t> node = Words({typeAEList, 4, 0});
        for (int i = 0; i < depth; ++i)
        {
            std::vector<uint8_t> outer = Words({typeAEList, uint32_t(4 + node.size()), 1});
            outer.insert(outer.end(), node.begin(), node.end());
            node.swap(outer);
        }
        node.insert(node.begin(), {'A', 'E', 'f', 'l'});
        return node;
    };
    AEDesc result;
    std::vector<uint8_t> ok = nested(64);
    EXPECT_EQ(AEUnflattenDescFromBytes(ok.data(), ok.size(), &result), noErr);
    AEDisposeDesc(&result);
    std::vector<uint8_t> deep = nested(65);
    EXPECT_EQ(AEUnflattenDescFromBytes(deep.data(), deep.size(), &result), errAECorruptData);
}
} // namespace
