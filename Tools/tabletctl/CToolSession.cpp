#include "Tools/tabletctl/CToolSession.h"

#include "Tools/tabletctl/CCommandError.h"

#include <CarbonCore/MacErrors.h>

#include <cstdio>

namespace
{
// The Apple Event errors a sender of events to the coordinator meets.
struct SAppleEventError
{
    int mNumber;
    const char* mName;
};
#define KEL_AE_ERROR(name)                                                                         \
    {                                                                                              \
        name, #name                                                                                \
    }
const SAppleEventError kAppleEventErrors[] = {
    KEL_AE_ERROR(paramErr),
    KEL_AE_ERROR(procNotFound),
    KEL_AE_ERROR(connectionInvalid),
    KEL_AE_ERROR(errAECoercionFail),
    KEL_AE_ERROR(errAEDescNotFound),
    KEL_AE_ERROR(errAECorruptData),
    KEL_AE_ERROR(errAEWrongDataType),
    KEL_AE_ERROR(errAENotAEDesc),
    KEL_AE_ERROR(errAEEventNotHandled),
    KEL_AE_ERROR(errAEReplyNotValid),
    KEL_AE_ERROR(errAEUnknownSendMode),
    KEL_AE_ERROR(errAETimeout),
    KEL_AE_ERROR(errAEUnknownAddressType),
    KEL_AE_ERROR(errAEHandlerNotFound),
    KEL_AE_ERROR(errAENoSuchObject),
};
#undef KEL_AE_ERROR
} // namespace

CToolSession::CToolSession(const SToolOptions& options_I)
    : mOptions(options_I), mClient(options_I.mTimeout)
{
    const KELSTATUS status = mClient.Connect(mOptions.mPortName);
    if (status != KELSTATUS_SUCCESS)
    {
        throw CCommandError("the coordinator is not running: nobody serves the port " +
                                mOptions.mPortName + " (" + DescribeStatus(status) + ")",
                            kExitNoCoordinator);
    }
}

void CToolSession::Check(KELSTATUS status_I, const std::string& what_I) const
{
    if (status_I == CKeltoClient::kStatusCoordinatorBusy)
    {
        throw CCommandError("coordinator busy: too many connections; " + what_I + " was refused (" +
                            DescribeStatus(status_I) + ")");
    }
    if (status_I != KELSTATUS_SUCCESS)
    {
        throw CCommandError(what_I + " failed: " + DescribeStatus(status_I));
    }
}

void CToolSession::CheckAppleEvent(int error_I, const std::string& what_I) const
{
    if (error_I != 0)
    {
        throw CCommandError(what_I + " failed: Apple Event error " +
                            DescribeAppleEventError(error_I));
    }
}

void CToolSession::Print(const SToolOptions& options_I, const nlohmann::ordered_json& json_I,
                         const std::string& text_I)
{
    if (options_I.mJSON)
    {
        // Text from another process need not be UTF-8; it must not stop the output.
        std::printf(
            "%s\n",
            json_I.dump(2, ' ', false, nlohmann::ordered_json::error_handler_t::replace).c_str());
    }
    else
    {
        std::fputs(text_I.c_str(), stdout);
    }
    std::fflush(stdout);
}

std::string CToolSession::Counted(std::size_t count_I, const std::string& one_I,
                                  const std::string& many_I)
{
    return std::to_string(count_I) + " " + (count_I == 1 ? one_I : many_I);
}

std::string CToolSession::DescribeStatus(KELSTATUS status_I)
{
    char hex[16];
    std::snprintf(hex, sizeof hex, "0x%04X", static_cast<unsigned int>(status_I));
    const std::string name = CKeltoClient::StatusName(status_I);
    return name == hex ? name : name + " (" + hex + ")";
}

std::string CToolSession::DescribeAppleEventError(int error_I)
{
    for (const SAppleEventError& known : kAppleEventErrors)
    {
        if (known.mNumber == error_I)
        {
            return std::to_string(error_I) + " (" + known.mName + ")";
        }
    }
    return std::to_string(error_I);
}
