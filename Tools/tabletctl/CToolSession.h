// CToolSession: a subcommand's connection to the coordinator, and how it reports failures.
//
// The constructor connects; when nobody serves the coordinator's port it throws the
// CCommandError "the coordinator is not running ..." with exit status kExitNoCoordinator.
// Check turns a failed status into one line naming the request and the status.
#pragma once

#include "Client/CKeltoClient.h"
#include "Tools/tabletctl/SToolOptions.h"

#include <nlohmann/json.hpp>

#include <string>

class CToolSession
{
public:
    explicit CToolSession(const SToolOptions& options_I);

    CKeltoClient& Client() { return mClient; }
    const SToolOptions& Options() const { return mOptions; }

    // Throws CCommandError "<what> failed: KELSTATUS_... (0x....)" unless status_I is 0.
    void Check(KELSTATUS status_I, const std::string& what_I) const;
    // The same for an Apple Event error number: "<what> failed: Apple Event error -1728
    // (errAENoSuchObject)".
    void CheckAppleEvent(int error_I, const std::string& what_I) const;

    // Prints the JSON document (with --json) or the text.
    void Print(const nlohmann::ordered_json& json_I, const std::string& text_I) const
    {
        Print(mOptions, json_I, text_I);
    }
    static void Print(const SToolOptions& options_I, const nlohmann::ordered_json& json_I,
                      const std::string& text_I);

    // "1 tablet", "2 tablets".
    static std::string Counted(std::size_t count_I, const std::string& one_I,
                               const std::string& many_I);
    // "KELSTATUS_OBJECT_NOT_FOUND (0x0606)".
    static std::string DescribeStatus(KELSTATUS status_I);
    // "-1728 (errAENoSuchObject)", or the bare number for an error without a known name.
    static std::string DescribeAppleEventError(int error_I);

private:
    SToolOptions mOptions;
    CKeltoClient mClient;
};
