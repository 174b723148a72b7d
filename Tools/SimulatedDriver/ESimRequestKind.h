// The kinds of request a simulated driver tells apart. The names are those of the
// configuration file ("Faults") and of the trace lines.
#pragma once

#include <optional>
#include <string>

// X(enumerator, name).
#define KEL_SIM_REQUEST_KIND_LIST(X)                                                               \
    X(eAny, "any")                                                                                 \
    X(eByteOrder, "byte-order")                                                                    \
    X(eAppleEvent, "apple-event")                                                                  \
    X(eFileVersion, "file-version")                                                                \
    X(eSystemID, "system-id")                                                                      \
    X(eTouchCapabilities, "touch-capabilities")                                                    \
    X(eModel, "model")                                                                             \
    X(eSerialNumber, "serial-number")                                                              \
    X(eTabletBlockSize, "tablet-block-size")                                                       \
    X(eTabletBlock, "tablet-block")                                                                \
    X(eTabletCount, "tablet-count")                                                                \
    X(eLastTabletUsed, "last-tablet-used")                                                         \
    X(eLastTabletUsedTimestamp, "last-tablet-used-timestamp")                                      \
    X(eTouchClient, "touch-client")                                                                \
    X(eCreate, "create")                                                                           \
    X(eIndex, "index")                                                                             \
    X(eDestroyTablet, "destroy-tablet")                                                            \
    X(eOther, "other")

enum class ESimRequestKind
{
#define KEL_SIM_REQUEST_KIND_ENUMERATOR(name, text) name,
    KEL_SIM_REQUEST_KIND_LIST(KEL_SIM_REQUEST_KIND_ENUMERATOR)
#undef KEL_SIM_REQUEST_KIND_ENUMERATOR
};

const char* SimRequestKindName(ESimRequestKind kind_I);
// The kind of that name; empty for an unknown name.
std::optional<ESimRequestKind> SimRequestKindFromName(const std::string& name_I);
// Every name, comma separated, for messages.
std::string SimRequestKindNames();
