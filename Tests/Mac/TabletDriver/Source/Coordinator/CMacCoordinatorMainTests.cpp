#include "Mac/TabletDriver/Source/Coordinator/CMacCoordinatorMain.h"

#include "Common/Coordinator/CRouteTable.h"
#include "Mac/TabletDriver/Source/Coordinator/CMacInputs.h"
#include "Tests/Mac/TabletDriver/Source/Coordinator/CoordinatorTestSupport.h"

#include <gtest/gtest.h>

#include <memory>
#include <string>
#include <vector>

namespace
{
using coordinator_test::Capture;
using coordinator_test::kMainSource;
using coordinator_test::Report;

// Inputs destroyed so far; outlives the main objects that own them.
int gInputsDestroyed = 0;

// Inputs that open no port: their Init result is the test's.
class FakeInputs : public CMacInputs
{
public:
    explicit FakeInputs(KELSTATUS result) : mResult(result) {}
    ~FakeInputs() override { ++gInputsDestroyed; }
    KELSTATUS Init(CRouteTable* table) override
    {
        CInputs::Init(table);
        return mResult;
    }
    KELSTATUS mResult;
};

// A driver interface whose Init fails for one signature, and which records what it was
// set up with.
class FakeInterface : public CMacDriverInterface
{
public:
    explicit FakeInterface(std::uint32_t failing) : mFailing(failing) {}
    KELSTATUS Init(std::uint32_t driverID, CFStringRef portName, bool connect) override
    {
        char name[128] = {};
        CFStringGetCString(portName, name, sizeof name, kCFStringEncodingUTF8);
        mPortName = name;
        mConnect = connect;
        mSignature = driverID;
        return driverID == mFailing ? KELSTATUS_RESOURCE_BAD_OPEN : KELSTATUS_SUCCESS;
    }
    std::uint32_t mFailing;
    std::uint32_t mSignature = 0;
    std::string mPortName;
    bool mConnect = true;
};

class TestMain : public CMacCoordinatorMain
{
public:
    KELSTATUS mInputsResult = KELSTATUS_SUCCESS;
    std::uint32_t mFailingDriver = 0;
    int mInputsMade = 0;
    std::vector<std::shared_ptr<FakeInterface>> mDrivers;

protected:
    CMacInputs* NewInputs() override
    {
        ++mInputsMade;
        return new FakeInputs(mInputsResult);
    }
    std::shared_ptr<CMacDriverInterface> NewDriverInterface() override
    {
        mDrivers.push_back(std::make_shared<FakeInterface>(mFailingDriver));
        return mDrivers.back();
    }
};

FakeInterface* DriverAt(CRouteTable* table, int driverID)
{
    return dynamic_cast<FakeInterface*>(table->GetDriverByID(driverID).get());
}

TEST(CMacCoordinatorMainTests, InitRegistersBothDriversUnconnectedByTheirPortNames)
{
    TestMain main;
    EXPECT_EQ(main.Init(), KELSTATUS_SUCCESS);
    ASSERT_NE(main.RouteTable(), nullptr);
    ASSERT_NE(main.Inputs(), nullptr);
    EXPECT_EQ(main.Inputs()->RoutingTable(), main.RouteTable());

    FakeInterface* driver0 = DriverAt(main.RouteTable(), 0);
    FakeInterface* driver1 = DriverAt(main.RouteTable(), 1);
    ASSERT_NE(driver0, nullptr);
    ASSERT_NE(driver1, nullptr);
    EXPECT_EQ(driver0->mSignature, 'KlKT');
    EXPECT_EQ(driver0->mPortName, "com.kelto.KeltoTabletDriverMessageServer");
    EXPECT_EQ(driver1->mSignature, 'KlPT');
    EXPECT_EQ(driver1->mPortName, "com.kelto.PenTabletDriverMessageServer");
    // A driver that is not running yet must not stop start-up: nothing connects here.
    EXPECT_FALSE(driver0->mConnect);
    EXPECT_FALSE(driver1->mConnect);
}

TEST(CMacCoordinatorMainTests, OnlyDriverOneFailingFailsStartUp)
{
    // Either failure is reported and both drivers stay registered; only driver 1's is fatal.
    const struct
    {
        std::uint32_t failing;
        KELSTATUS status;
        unsigned line;
    } cases[] = {{'KlKT', KELSTATUS_SUCCESS, 138}, {'KlPT', KELSTATUS_RESOURCE_BAD_OPEN, 144}};
    for (const auto& c : cases)
    {
        SCOPED_TRACE(c.line);
        TestMain main;
        main.mFailingDriver = c.failing;
        KELSTATUS status = 0;
        const auto output = Capture([&] { status = main.Init(); });
        EXPECT_EQ(status, c.status);
        EXPECT_EQ(output.out, Report(kMainSource, c.line, "status == KELSTATUS_SUCCESS"));
        EXPECT_NE(DriverAt(main.RouteTable(), 0), nullptr);
        EXPECT_NE(DriverAt(main.RouteTable(), 1), nullptr);
    }
}

TEST(CMacCoordinatorMainTests, InputsFailingStopsStartUpBeforeAnyDriver)
{
    TestMain main;
    main.mInputsResult = KELSTATUS_FAILURE;
    EXPECT_EQ(main.Init(), KELSTATUS_FAILURE);
    EXPECT_TRUE(main.mDrivers.empty());
    EXPECT_EQ(main.RouteTable()->GetDriverByID(0), nullptr);
    EXPECT_EQ(main.RouteTable()->GetDriverByID(1), nullptr);
}

TEST(CMacCoordinatorMainTests, SecondInitStartsOverWithNewInputsAndTable)
{
    gInputsDestroyed = 0;
    {
        TestMain main;
        ASSERT_EQ(main.Init(), KELSTATUS_SUCCESS);
        main.RouteTable()->AddNewTablet(0, 0);

        // No report of a driver replaced: the table is new.
        KELSTATUS status = 0;
        const auto output = Capture([&] { status = main.Init(); });
        EXPECT_EQ(status, KELSTATUS_SUCCESS);
        EXPECT_EQ(output.out, "");
        EXPECT_EQ(main.mInputsMade, 2);
        EXPECT_EQ(gInputsDestroyed, 1);
        EXPECT_EQ(main.Inputs()->RoutingTable(), main.RouteTable());
        EXPECT_EQ(main.RouteTable()->TabletCount(), 0u);
        EXPECT_EQ(main.mDrivers.size(), 4u);
        EXPECT_EQ(DriverAt(main.RouteTable(), 1), main.mDrivers[3].get());
    }
    // The main object's end deletes the inputs it holds.
    EXPECT_EQ(gInputsDestroyed, 2);
}

TEST(CMainTests, InitWithoutInputsReportsAndStillMakesTheTable)
{
    struct BareMain : CMain
    {
    };
    BareMain main;
    KELSTATUS status = 0;
    const auto output = Capture([&] { status = main.Init(); });
    EXPECT_EQ(output.out, Report("Common/Coordinator/CMain", 56, "mInputs"));
    EXPECT_EQ(status, KELSTATUS_MEMORY_NULL_PTR);
    EXPECT_NE(main.RouteTable(), nullptr);
}
} // namespace
