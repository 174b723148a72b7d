#include "Common/Settings/CSettingsNestingGuard.h"
#include "SettingsTestSupport.h"

#include <cmath>
#include <filesystem>
#include <fstream>

using namespace SettingsTest;

namespace
{
std::shared_ptr<CSettingsObject> Read(const std::string& text, SOutput* output = nullptr)
{
    std::shared_ptr<CSettingsObject> result;
    SOutput captured = Capture([&] { result = CSettingsObject::ReadFromJSONBuffer(text); });
    if (output)
    {
        *output = captured;
    }
    return result;
}

std::string Trace(const std::string& text)
{
    auto object = Read(text);
    return object ? object->GetTraceString() : "(null)";
}

// A scratch file in the test's build directory, removed at the end of the test.
class CScratchFile
{
public:
    explicit CScratchFile(const std::string& name)
        : mPath(std::filesystem::path(KEL_TEST_BINARY_DIR) / ("settings_json_" + name))
    {
        std::filesystem::remove(mPath);
    }
    ~CScratchFile() { std::filesystem::remove(mPath); }
    std::string Path() const { return mPath.string(); }
    void Write(const std::string& text) const { std::ofstream(mPath, std::ios::binary) << text; }
    std::string Contents() const
    {
        std::ifstream in(mPath, std::ios::binary);
        return std::string(std::istreambuf_iterator<char>(in), std::istreambuf_iterator<char>());
    }

private:
    std::filesystem::path mPath;
};
} // namespace

TEST(CSettingsJSON, ScalarsOfEveryKind)
{
    auto array = CSettingsArray::CastToArray(
        Read("[1, 2.5, -3e2, true, null, \"x\", false, 7E1, -0]"), true);
    ASSERT_TRUE(array);
    EXPECT_EQ(array->GetTraceString(),
              "array[0:integer[1], 1:double[2.500000], 2:double[-300.000000], 3:bool[true], "
              "4:null[], 5:string[x], 6:bool[false], 7:double[70.000000], 8:integer[0]]");
    // Numbers stop at the first character outside their run.
    EXPECT_EQ(Trace("[false,1-2]"), "array[0:bool[false], 1:integer[1]]");
    SOutput output;
    Read("[1-2]", &output);
    EXPECT_EQ(output.err, "CSettingsInteger::StringToInteger: ERROR: bad integer: 1-2\n");
    output = SOutput();
    EXPECT_EQ(Read("[-]", &output)->GetTraceString(), "array[0:integer[0]]");
    EXPECT_TRUE(output.err.find("StringToInteger: ") != std::string::npos);
    EXPECT_EQ(Trace("[-.e]"), "array[0:double[0.000000]]");
}

TEST(CSettingsJSON, StringEscapes)
{
    EXPECT_EQ(Trace(R"(["a\"b\\c\/d"])"), "array[0:string[a\"b\\c/d]]");
    EXPECT_EQ(Trace(R"(["\b\f\n\r\t"])"), "array[0:string[\b\f\n\r\t]]");
    EXPECT_EQ(Trace(R"(["\u00e9\u20AC"])"), "array[0:string[\xC3\xA9\xE2\x82\xAC]]");
    // Each \u stands alone: a surrogate pair gives two three-byte sequences.
    EXPECT_EQ(Trace(R"(["\ud83d\ude00"])"), "array[0:string[\xED\xA0\xBD\xED\xB8\x80]]");
    // Raw control characters and high bytes are copied unchanged.
    EXPECT_EQ(Trace("[\"\x01\n\xFF\"]"), "array[0:string[\x01\n\xFF]]");
    // A bad escape, a short \u or an unterminated string makes the container null.
    EXPECT_EQ(Trace(R"(["\q"])"), "(null)");
    EXPECT_EQ(Trace(R"({"k": ["\q"]})"), "(null)");
    EXPECT_EQ(Trace(R"(["\u00g9"])"), "(null)");
    EXPECT_EQ(Trace(R"(["\u00)"), "(null)");
    EXPECT_EQ(Trace(R"(["abc)"), "(null)");
    EXPECT_EQ(Trace("[\"abc\\"), "(null)");
}

TEST(CSettingsJSON, ContainerRules)
{
    EXPECT_EQ(Trace("{}"), "ma]");
    EXPECT_EQ(Trace("[]"), "arra]");
    EXPECT_EQ(Trace("{\"b\": 1, \"a\": 2, \"b\": 3}"), "map[a:integer[2], b:integer[3]]");
    EXPECT_EQ(Trace("{\"a\": 1,}"), "map[a:integer[1]]");
    EXPECT_EQ(Trace("[1,,2]"), "array[0:integer[1], 1:integer[2]]");
    // Missing separator (words need no delimiter, but the next value still needs its ','),
    // missing colon, non-string or empty key, missing value, end of text: null.
    for (const char* text : {"{\"a\": 1 \"b\": 2}", "[1 2]", "[truefalse]", "[[1] {}]"})
    {
        SOutput output;
        EXPECT_EQ(Read(text, &output), nullptr) << text;
        EXPECT_NE(output.err.find("missing ',' before offset "), std::string::npos) << text;
    }
    EXPECT_EQ(Trace("{\"a\" 1}"), "(null)");
    EXPECT_EQ(Trace("{a: 1}"), "(null)");
    EXPECT_EQ(Trace("{\"\": 1}"), "(null)");
    EXPECT_EQ(Trace("{\"a\": }"), "(null)");
    EXPECT_EQ(Trace("{\"a\": 1"), "(null)");
    EXPECT_EQ(Trace("[1, 2"), "(null)");
    EXPECT_EQ(Trace("[[1], {\"a\": [true]}]"),
              "array[0:array[0:integer[1]], 1:map[a:array[0:bool[true]]]]");
}

TEST(CSettingsJSON, BytesObjectsUnwrapOnlyInsideContainers)
{
    EXPECT_EQ(Trace("[{\"SbyteS\":\"AAEC\"}]"), "array[0:bytes[AAEC]]");
    EXPECT_EQ(Trace("{\"SbyteS\":\"AAEC\"}"), "map[SbyteS:bytes[AAEC]]");
    size_t pos = 0;
    auto bytes = CSettingsBytes::CastToBytes(
        CSettingsObject::ReadFromJSONNode("{\"SbyteS\":\"AAEC\"}", pos));
    ASSERT_TRUE(bytes);
    EXPECT_EQ(bytes->GetValue(), (std::vector<uint8_t>{0, 1, 2}));
    // Only the pair closed by '}' is converted, and only a string value.
    EXPECT_EQ(Trace("[{\"SbyteS\":\"AAEC\",\"z\":1}]"),
              "array[0:map[SbyteS:string[AAEC], z:integer[1]]]");
    EXPECT_EQ(Trace("[{\"a\":1,\"SbyteS\":\"AAEC\"}]"),
              "array[0:map[SbyteS:bytes[AAEC], a:integer[1]]]");
    EXPECT_EQ(Trace("[{\"SbyteS\":5}]"), "array[0:map[SbyteS:integer[5]]]");
    // Padding is not base64 here: the bytes are empty.
    EXPECT_EQ(Trace("[{\"SbyteS\":\"AAE=\"}]"), "array[0:bytes[]]");
    pos = 0;
    EXPECT_TRUE(CSettingsBytes::ReadFromJSONNode("{\"SbyteS\":\"/w\"}", pos));
    pos = 0;
    EXPECT_FALSE(CSettingsBytes::ReadFromJSONNode("{\"a\":\"/w\"}", pos));
}

TEST(CSettingsJSON, DocumentedLossesOnTheWayBack)
{
    auto map = CSettingsMap::New();
    map->SetKeyAndKEString("k", "text");
    map->SetKeyAndDouble("d", 3);
    map->SetKeyAndDouble("p", 0.1234567);
    map->SetKeyAndString("q", "a\"b");
    auto back = CSettingsMap::CastToMap(Read(map->GetJSONString()), true);
    // The quote inside "q" ends the string early and breaks the document.
    EXPECT_EQ(back, nullptr);
    map->RemoveObjectForKey("q");
    back = CSettingsMap::CastToMap(Read(map->GetJSONString()), true);
    ASSERT_TRUE(back);
    EXPECT_EQ(back->TypeNameForKeyOrEmpty("k"), "string");
    EXPECT_EQ(back->TypeNameForKeyOrEmpty("d"), "double");
    EXPECT_EQ(back->DoubleForKeyWithDefault("d", 0), 3.0);
    EXPECT_EQ(back->DoubleForKeyWithDefault("p", 0), 0.123457);
}

TEST(CSettingsJSON, FilesAreReadUpToEndOfTransmissionAndWrittenWithALineFeed)
{
    CScratchFile file("roundtrip.json");
    auto map = CSettingsMap::New();
    map->SetKeyAndString("name", "pen");
    ASSERT_TRUE(map->SaveJSONToFile(file.Path()));
    EXPECT_EQ(file.Contents(), "{\n\t\"name\": \"pen\"\n}\n");
    auto back = CSettingsObject::ReadFromJSONFile(file.Path());
    ASSERT_TRUE(back);
    EXPECT_TRUE(back->IsEqualTo(map));

    file.Write("[1]\x04 garbage that is never read {");
    EXPECT_EQ(CSettingsObject::ReadFromJSONFile(file.Path())->GetTraceString(),
              "array[0:integer[1]]");

    // A scalar is not saved and the file stays as it was.
    EXPECT_FALSE(CSettingsInteger::New(1)->SaveJSONToFile(file.Path()));
    EXPECT_EQ(file.Contents(), "[1]\x04 garbage that is never read {");

    EXPECT_EQ(CSettingsObject::ReadFromJSONFile(file.Path() + ".absent"), nullptr);
    EXPECT_FALSE(map->SaveJSONToFile(std::string(KEL_TEST_BINARY_DIR) + "/no/such/dir/x.json"));
}

TEST(CSettingsJSON, NestingIsBounded)
{
    const int limit = CSettingsNestingGuard::kMaxNestingDepth;
    auto nested = [](int depth)
    {
        return std::string(static_cast<size_t>(depth), '[') +
               std::string(static_cast<size_t>(depth), ']');
    };
    EXPECT_TRUE(Read(nested(limit)));
    SOutput output;
    EXPECT_EQ(Read(nested(limit + 1), &output), nullptr);
    EXPECT_EQ(output.err,
              "CSettingsArray::ReadFromJSONNode: containers nested deeper than 256 levels\n");
    // Megabytes of openers, of both kinds.
    std::string deep;
    for (int i = 0; i < 500000; ++i)
    {
        deep += "{\"k\":[";
    }
    EXPECT_EQ(Read(deep, &output), nullptr);
    EXPECT_NE(output.err.find("nested deeper than 256 levels"), std::string::npos);
    EXPECT_TRUE(Read(nested(limit)));
}

// The writers refuse what the readers would refuse (a file is left as it was), and a tree
// far deeper than that is still freed.
TEST(CSettingsJSON, WritersRefuseWhatTheReadersCannotTakeBack)
{
    const int limit = CSettingsNestingGuard::kMaxNestingDepth;
    auto nest = [](int depth, std::shared_ptr<CSettingsObject> leaf)
    {
        for (int i = 0; i < depth; ++i)
        {
            auto array = CSettingsArray::New();
            array->AddObject(std::move(leaf));
            leaf = array;
        }
        return leaf;
    };
    auto nonFinite = CSettingsArray::New();
    for (double value : {1.0, std::nan(""), -HUGE_VAL})
    {
        nonFinite->AddObject(CSettingsDouble::New(value));
    }
    struct Case
    {
        std::shared_ptr<CSettingsObject> tree;
        const char* jsonRefusal;    // empty: written and read back
        const char* archiveRefusal; // the same for the archive
    };
    const std::string tooDeep = ": containers nested deeper than 256 levels\n";
    const Case cases[] = {
        {nest(limit, CSettingsInteger::New(1)), "", ""},
        {nest(limit + 1, CSettingsInteger::New(1)), "GetJSONString", "GetASN1Binary"},
        // Bytes are written to JSON as a one-entry object, a level deeper.
        {nest(limit, CSettingsBytes::New({1})), "GetJSONString", ""},
        {nonFinite, "GetJSONString", ""},
    };
    for (const Case& c : cases)
    {
        SCOPED_TRACE(c.jsonRefusal);
        SOutput output;
        std::string text;
        std::vector<uint8_t> archive;
        output = Capture([&] { text = c.tree->GetJSONString(); });
        if (*c.jsonRefusal == '\0')
        {
            EXPECT_TRUE(Read(text) && Read(text)->IsEqualTo(c.tree));
        }
        else
        {
            EXPECT_EQ(text, "");
            EXPECT_EQ(output.err.substr(0, output.err.find(':')), c.jsonRefusal);
        }
        output = Capture([&] { archive = c.tree->GetASN1Binary(); });
        EXPECT_EQ(archive.empty(), *c.archiveRefusal != '\0');
        EXPECT_EQ(output.err, *c.archiveRefusal ? c.archiveRefusal + tooDeep : "");
    }
    SOutput output = Capture([&] { EXPECT_EQ(nonFinite->GetJSONString(), ""); });
    EXPECT_EQ(output.err, "GetJSONString: the double nan has no JSON form\n");

    CScratchFile file("refused.json");
    file.Write("[1]");
    Capture([&] { EXPECT_FALSE(nonFinite->SaveJSONToFile(file.Path())); });
    EXPECT_EQ(file.Contents(), "[1]");

    // A million levels, freed without a destructor inside the other.
    auto deep = nest(1000000, CSettingsMap::New());
    deep.reset();
}
