// CXSOpStatus: the outcome of a settings import or export, collected while it runs and mapped
// onto a KELSTATUS afterwards.
//
// A singleton whose state is class-wide: the status and the list of error texts live in the
// class, the instance holds nothing. Main thread only; nothing is guarded.
#pragma once

#include "Common/KelStatus.h"

#include <string>
#include <vector>

enum EXSOpStatus : int
{
    eXSOpStatusNoError = 0,
    eXSOpStatusImportFailed = 1,
    eXSOpStatusExportFailed = 2
};

class CXSOpStatus
{
public:
    // The single instance, created (and reset) on the first call, or on the first call after
    // the instance was destroyed.
    static CXSOpStatus* GetInstance();

    // Clears the status and the error texts.
    void Init();
    void AddErr(const std::string& err_I);
    // Every error text followed by ';' ("a;b;"); the empty text for no errors.
    std::string GetErrListString() const;
    void SetErrStatus(EXSOpStatus status_I);
    EXSOpStatus GetErrStatus() const;
    // Import failed: KELSTATUS_XSETTINGS_IMPORT_ERR; export failed:
    // KELSTATUS_XSETTINGS_EXPORT_ERR; anything else: KELSTATUS_SUCCESS.
    KELSTATUS GetKelStatus() const;

    // Only forgets that the instance exists; the class-wide state stays.
    ~CXSOpStatus();

private:
    CXSOpStatus();
    CXSOpStatus(const CXSOpStatus&) = delete;
    CXSOpStatus& operator=(const CXSOpStatus&) = delete;

    inline static EXSOpStatus mXSOpStatus = eXSOpStatusNoError;
    inline static std::vector<std::string> mErrs;
    inline static bool sInstanceCreated = false;
    inline static CXSOpStatus* sInstance = nullptr;
};
