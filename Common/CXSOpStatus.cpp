#include "Common/CXSOpStatus.h"

CXSOpStatus* CXSOpStatus::GetInstance()
{
    if (!sInstanceCreated)
    {
        sInstance = new CXSOpStatus();
        sInstanceCreated = true;
    }
    return sInstance;
}

CXSOpStatus::CXSOpStatus()
{
    Init();
}

CXSOpStatus::~CXSOpStatus()
{
    sInstanceCreated = false;
}

void CXSOpStatus::Init()
{
    mXSOpStatus = eXSOpStatusNoError;
    mErrs.clear();
}

void CXSOpStatus::AddErr(const std::string& err_I)
{
    mErrs.push_back(err_I);
}

std::string CXSOpStatus::GetErrListString() const
{
    std::string list;
    for (const std::string& err : mErrs)
    {
        list += err;
        list += ';';
    }
    return list;
}

void CXSOpStatus::SetErrStatus(EXSOpStatus status_I)
{
    mXSOpStatus = status_I;
}

EXSOpStatus CXSOpStatus::GetErrStatus() const
{
    return mXSOpStatus;
}

KELSTATUS CXSOpStatus::GetKelStatus() const
{
    switch (mXSOpStatus)
    {
    case eXSOpStatusImportFailed:
        return KELSTATUS_XSETTINGS_IMPORT_ERR;
    case eXSOpStatusExportFailed:
        return KELSTATUS_XSETTINGS_EXPORT_ERR;
    default:
        return KELSTATUS_SUCCESS;
    }
}
