#include "Common/ASN1Coding.h"
#include "Common/Settings/CSettingsNestingGuard.h"
#include "SettingsTestSupport.h"

#include <limits>
#include <stdexcept>

using namespace SettingsTest;

namespace
{
const std::vector<uint8_t> kHeader = Hex("02 04 4B 65 6C 6D");

std::vector<uint8_t> WithHeader(const std::vector<uint8_t>& node)
{
    std::vector<uint8_t> archive = kHeader;
    archive.insert(archive.end(), node.begin(), node.end());
    return archive;
}

std::vector<uint8_t> NodeOf(const std::shared_ptr<CSettingsObject>& object)
{
    std::vector<uint8_t> node;
    object->AppendASN1Node(node);
    return node;
}

// Reads an archive, expecting it to fail, and returns what ReadFromASN1Binary printed.
std::string FailingReadMessage(const std::vector<uint8_t>& archive)
{
    std::shared_ptr<CSettingsObject> result;
    SOutput output = Capture([&] { result = CSettingsObject::ReadFromASN1Binary(archive); });
    EXPECT_EQ(result, nullptr);
    return output.err;
}
} // namespace

TEST(ASN1Coding, LengthOctets)
{
    using namespace ASN1Coding;
    EXPECT_EQ(MakeLength(0), Hex("00"));
    EXPECT_EQ(MakeLength(127), Hex("7F"));
    EXPECT_EQ(MakeLength(128), Hex("81 80"));
    EXPECT_EQ(MakeLength(200), Hex("81 C8"));
    EXPECT_EQ(MakeLength(256), Hex("82 01 00"));
    EXPECT_EQ(MakeLength(70000), Hex("83 01 11 70"));
    EXPECT_EQ(MakeLength(IndefiniteLength - 1), Hex("88 FF FF FF FF FF FF FF FE"));
    EXPECT_EQ(MakeLength(IndefiniteLength), Hex("80"));
    EXPECT_EQ(MakeIndefiniteLength(), 0x80);

    std::vector<uint8_t> archive = Hex("80 7F 83 01 11 70 89 01 00 00 00 00 00 00 00 05");
    size_t pos = 0;
    EXPECT_EQ(DecodeLengthFromArchive(archive, pos), IndefiniteLength);
    EXPECT_EQ(DecodeLengthFromArchive(archive, pos), 127u);
    EXPECT_EQ(DecodeLengthFromArchive(archive, pos), 70000u);
    // Nine length octets: the high one shifts out.
    EXPECT_EQ(DecodeLengthFromArchive(archive, pos), 5u);
    EXPECT_EQ(pos, archive.size());
}

TEST(ASN1Coding, ScalarNodesAreByteExact)
{
    struct SCase
    {
        std::shared_ptr<CSettingsObject> object;
        const char* node;
    };
    const SCase cases[] = {
        {CSettingsInteger::New(0), "02 01 00"},
        {CSettingsInteger::New(5), "02 01 05"},
        {CSettingsInteger::New(128), "02 01 80"},
        {CSettingsInteger::New(255), "02 01 FF"},
        {CSettingsInteger::New(256), "02 02 01 00"},
        {CSettingsInteger::New(0x4B656C6D), "02 04 4B 65 6C 6D"},
        {CSettingsInteger::New(-1), "02 08 FF FF FF FF FF FF FF FF"},
        {CSettingsInteger::New(std::numeric_limits<long long>::min()),
         "02 08 80 00 00 00 00 00 00 00"},
        {CSettingsBool::New(true), "01 01 FF"},
        {CSettingsBool::New(false), "01 01 00"},
        {CSettingsDouble::New(1.0), "41 08 3F F0 00 00 00 00 00 00"},
        {CSettingsDouble::New(-2.5), "41 08 C0 04 00 00 00 00 00 00"},
        {CSettingsString::New("ab"), "0C 02 61 62"},
        {CSettingsString::New(""), "0C 00"},
        {CSettingsKEString::New("ab"), "63 02 61 62"},
        {CSettingsBytes::New({0, 0xFF}), "04 02 00 FF"},
        {CSettingsNULL::New(), "05 00"},
        {CSettingsMap::New(), "60 80 00 00"},
        {CSettingsArray::New(), "62 80 00 00"},
    };
    for (const auto& c : cases)
    {
        EXPECT_EQ(NodeOf(c.object), Hex(c.node)) << c.object->GetTraceString();
        if (c.object->GetTypeName() == "null")
        {
            continue;
        }
        auto back = CSettingsObject::ReadFromASN1Binary(c.object->GetASN1Binary());
        ASSERT_TRUE(back) << c.object->GetTraceString();
        EXPECT_TRUE(back->IsEqualTo(c.object)) << back->GetTraceString();
    }
    std::vector<uint8_t> longString = NodeOf(CSettingsString::New(std::string(200, 'x')));
    EXPECT_EQ(std::vector<uint8_t>(longString.begin(), longString.begin() + 3), Hex("0C 81 C8"));
    std::vector<uint8_t> hugeBytes = NodeOf(CSettingsBytes::New(std::vector<uint8_t>(70000, 7)));
    EXPECT_EQ(hugeBytes.size(), 70005u);
    EXPECT_EQ(std::vector<uint8_t>(hugeBytes.begin(), hugeBytes.begin() + 5),
              Hex("04 83 01 11 70"));
    EXPECT_EQ(CSettingsObject::ReadFromASN1Binary(WithHeader(hugeBytes))->GetStringValue().size(),
              93334u);
}

TEST(ASN1Coding, HeaderProblemsAreSilent)
{
    const char* archives[] = {"", "02 01 01 60 80 00 00", "0C 04 4B 65 6C 6D 60 80 00 00",
                              "02 04 4B 65 6C 6E 60 80 00 00"};
    for (const char* archive : archives)
    {
        EXPECT_EQ(FailingReadMessage(Hex(archive)), "") << archive;
    }
    std::string failure;
    EXPECT_EQ(CSettingsObject::ReadFromASN1Binary(Hex("02 01 01"), failure), nullptr);
    EXPECT_EQ(failure, "no settings archive header");
}

TEST(ASN1Coding, NullNodesCannotBeReadBackThroughTheDispatcher)
{
    const std::string expected = "ReadFromASN1Binary: unknown data type in archive\n";
    EXPECT_EQ(FailingReadMessage(CSettingsNULL::New()->GetASN1Binary()), expected);
    auto map = CSettingsMap::New();
    map->SetKeyAndObject("n", nullptr);
    EXPECT_EQ(FailingReadMessage(map->GetASN1Binary()), expected);
    EXPECT_EQ(FailingReadMessage(WithHeader(Hex("62 80 30 00 00 00"))), expected);

    // The class's own reader accepts 05 00 when called directly.
    std::vector<uint8_t> node = Hex("05 00");
    size_t pos = 0;
    EXPECT_TRUE(CSettingsNULL::ReadFromASN1Node(node, pos));
    EXPECT_EQ(pos, 2u);
    pos = 0;
    EXPECT_EQ(CSettingsBool::ReadFromASN1Node(node, pos), nullptr);
}

TEST(ASN1Coding, EveryTruncationFailsWithTheEndOfArchiveError)
{
    auto map = CSettingsMap::New();
    map->SetKeyAndString("text", std::string(300, 't'));
    map->SetKeyAndDouble("d", 3.5);
    map->SetKeyAndBool("b", false);
    auto list = CSettingsArray::New();
    list->AddInteger(-77);
    list->AddObject(CSettingsBytes::New({1, 2, 3}));
    list->AddObject(CSettingsKEString::New("ke"));
    map->SetKeyAndObject("list", list);
    const std::vector<uint8_t> archive = map->GetASN1Binary();
    ASSERT_TRUE(CSettingsObject::ReadFromASN1Binary(archive));
    for (size_t size = kHeader.size(); size < archive.size(); ++size)
    {
        std::vector<uint8_t> cut(archive.begin(), archive.begin() + static_cast<long>(size));
        EXPECT_EQ(FailingReadMessage(cut), "ReadFromASN1Binary: ASN1 archive ended unexpectedly\n")
            << "cut at " << size;
    }
    for (const char* header : {"02 04 4B 65", "02"})
    {
        EXPECT_EQ(FailingReadMessage(Hex(header)),
                  "ReadFromASN1Binary: ASN1 archive ended unexpectedly\n");
    }
}

TEST(ASN1Coding, ClaimedLengthsBeyondTheArchiveThrow)
{
    const char* nodes[] = {
        "0C 05 61 62",                   // string longer than what remains
        "04 88 FF FF FF FF FF FF FF FF", // bytes claiming 2^64-1 octets
        "63 84 7F FF FF FF 61",          // kestring with a long form
        "02 84 10 00 00 00 01 02",       // integer of 2^28 octets (asserts, then runs out)
        "41 03 01 02 03",                // double: eight octets read whatever the length
        "01 01",                         // bool without its content octet
        "0C FF",                         // long form claiming 127 length octets
    };
    for (const char* node : nodes)
    {
        std::vector<uint8_t> archive = Hex(node);
        size_t pos = 0;
        Capture(
            [&] {
                EXPECT_THROW(CSettingsObject::ReadFromASN1Node(archive, pos), std::out_of_range)
                    << node;
            });
    }
}

TEST(ASN1Coding, ContainersOwnExactlyTheirEntriesWhateverCameBefore)
{
    // Keys come out sorted, a repeated key keeps its last value, and stray octets between
    // entries (07, 02) are skipped one at a time.
    const std::pair<const char*, const char*> maps[] = {
        {"60 80 0C 01 63 02 01 03 0C 01 61 02 01 01 0C 01 63 02 01 04 00 00",
         "map[a:integer[1], c:integer[4]]"},
        {"60 80 07 0C 01 61 02 01 01 02 0C 01 61 02 01 02 00 00 EE EE", "map[a:integer[2]]"},
    };
    for (const auto& [node, trace] : maps)
    {
        auto root = CSettingsObject::ReadFromASN1Binary(WithHeader(Hex(node)));
        ASSERT_TRUE(root) << node;
        EXPECT_EQ(root->GetTraceString(), trace);
    }

    // A read that fails deep inside nested containers leaves nothing behind for the next one.
    auto inner = CSettingsMap::New();
    inner->SetKeyAndInteger("x", 1);
    auto list = CSettingsArray::New();
    list->AddInteger(2);
    list->AddObject(inner);
    auto outer = CSettingsMap::New();
    outer->SetKeyAndObject("list", list);
    outer->SetKeyAndString("z", "last");
    const std::vector<uint8_t> archive = outer->GetASN1Binary();
    for (size_t cut = kHeader.size() + 1; cut < archive.size(); ++cut)
    {
        FailingReadMessage({archive.begin(), archive.begin() + static_cast<long>(cut)});
        auto back = CSettingsObject::ReadFromASN1Binary(archive);
        ASSERT_TRUE(back && back->IsEqualTo(outer)) << "after a read cut at " << cut;
    }
}

TEST(ASN1Coding, NestingIsBoundedAndDeepArchivesFailCleanly)
{
    const int limit = CSettingsNestingGuard::kMaxNestingDepth;
    auto nested = [](int depth)
    {
        std::vector<uint8_t> archive = kHeader;
        for (int i = 0; i < depth; ++i)
        {
            archive.insert(archive.end(), {0x62, 0x80});
        }
        for (int i = 0; i < depth; ++i)
        {
            archive.insert(archive.end(), {0x00, 0x00});
        }
        return archive;
    };
    EXPECT_TRUE(CSettingsObject::ReadFromASN1Binary(nested(limit)));
    EXPECT_EQ(FailingReadMessage(nested(limit + 1)),
              "ReadFromASN1Binary: settings archive nested too deeply\n");
    // A few megabytes of unterminated maps inside a map.
    std::vector<uint8_t> deep = kHeader;
    for (int i = 0; i < 1000000; ++i)
    {
        deep.insert(deep.end(), {0x60, 0x80, 0x0C, 0x00});
    }
    EXPECT_EQ(FailingReadMessage(deep), "ReadFromASN1Binary: settings archive nested too deeply\n");
    // The guard is released by a failed read: a legal tree reads afterwards.
    EXPECT_TRUE(CSettingsObject::ReadFromASN1Binary(nested(limit)));
}
