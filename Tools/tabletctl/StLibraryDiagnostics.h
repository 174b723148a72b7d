// While it lives, the settings library's own diagnostic lines (assertion lines on standard
// output, conversion messages on standard error) are kept from the user, who gets the one
// line tabletctl prints instead; with --verbose they go to standard error, never among the
// data on standard output.
#pragma once

class StLibraryDiagnostics
{
public:
    explicit StLibraryDiagnostics(bool verbose_I);
    ~StLibraryDiagnostics();
    StLibraryDiagnostics(const StLibraryDiagnostics&) = delete;
    StLibraryDiagnostics& operator=(const StLibraryDiagnostics&) = delete;

private:
    int mSavedOut = -1;
    int mSavedErr = -1;
};
