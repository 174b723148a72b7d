#include "Common/CXSOpStatus.h"

#include <gtest/gtest.h>

TEST(CXSOpStatus, ErrorsCollectAndMapOntoStatusCodesUntilInitOrRecreation)
{
    CXSOpStatus* status = CXSOpStatus::GetInstance();
    ASSERT_EQ(CXSOpStatus::GetInstance(), status);
    status->Init();
    status->AddErr("a");
    status->AddErr("");
    EXPECT_EQ(status->GetErrListString(), "a;;");
    EXPECT_EQ(status->GetKelStatus(), KELSTATUS_SUCCESS);
    status->SetErrStatus(eXSOpStatusImportFailed);
    EXPECT_EQ(status->GetKelStatus(), KELSTATUS_XSETTINGS_IMPORT_ERR);
    status->SetErrStatus(eXSOpStatusExportFailed);
    EXPECT_EQ(status->GetKelStatus(), KELSTATUS_XSETTINGS_EXPORT_ERR);
    status->SetErrStatus(static_cast<EXSOpStatus>(3));
    EXPECT_EQ(status->GetKelStatus(), KELSTATUS_SUCCESS);
    status->Init();
    EXPECT_EQ(status->GetErrStatus(), eXSOpStatusNoError);
    EXPECT_EQ(status->GetErrListString(), "");

    status->AddErr("left over");
    status->SetErrStatus(eXSOpStatusExportFailed);
    delete status;
    CXSOpStatus* again = CXSOpStatus::GetInstance();
    ASSERT_NE(again, nullptr);
    EXPECT_EQ(again->GetErrStatus(), eXSOpStatusNoError);
    EXPECT_EQ(again->GetErrListString(), "");
}
