// KELSTATUS: the one status vocabulary of the system.
//
// An unsigned 16-bit code. 0 is success, 0xFFFF is the generic failure (the route table
// also reads it as "not handled locally"); every other code sits in a group chosen by its
// high byte. The list below is the single source of both the constants and their names
// (CStringifyEnums<unsigned short>), so the two cannot drift apart. Spellings are the
// system's own: DATA_SUPRESSED keeps its single P, and PREFS_MISSING is 0x031B on purpose.
#pragma once

#include <cstddef>

typedef unsigned short KELSTATUS;

// X(name, value), in the order the name table is filled.
#define KEL_STATUS_LIST(X)                                                                         \
    /* General */                                                                                  \
    X(KELSTATUS_SUCCESS, 0x0000)                                                                   \
    X(KELSTATUS_FAILURE, 0xFFFF)                                                                   \
    /* Memory */                                                                                   \
    X(KELSTATUS_MEMORY_BAD, 0x0100)                                                                \
    X(KELSTATUS_MEMORY_ALLOC, 0x0101)                                                              \
    X(KELSTATUS_MEMORY_BAD_PTR, 0x0102)                                                            \
    X(KELSTATUS_MEMORY_NULL_PTR, 0x0103)                                                           \
    X(KELSTATUS_MEMORY_BAD_FREE, 0x0104)                                                           \
    X(KELSTATUS_MEMORY_OVERRUN, 0x0105)                                                            \
    /* Resources */                                                                                \
    X(KELSTATUS_RESOURCE_MISSING, 0x0200)                                                          \
    X(KELSTATUS_RESOURCE_BAD, 0x0201)                                                              \
    X(KELSTATUS_RESOURCE_EXISTS, 0x0202)                                                           \
    X(KELSTATUS_RESOURCE_BAD_ALLOC, 0x0203)                                                        \
    X(KELSTATUS_RESOURCE_BAD_OPEN, 0x0204)                                                         \
    X(KELSTATUS_RESOURCE_BAD_CLOSE, 0x0205)                                                        \
    X(KELSTATUS_RESOURCE_BAD_SEEK, 0x0206)                                                         \
    X(KELSTATUS_RESOURCE_BAD_WRITE, 0x0207)                                                        \
    X(KELSTATUS_RESOURCE_BAD_READ, 0x0208)                                                         \
    X(KELSTATUS_RESOURCE_ACCESS_DENIED, 0x0209)                                                    \
    X(KELSTATUS_RESOURCE_FULL, 0x020A)                                                             \
    X(KELSTATUS_RESOURCE_EMPTY, 0x020B)                                                            \
    X(KELSTATUS_RESOURCE_SHMEM, 0x020C)                                                            \
    X(KELSTATUS_RESOURCE_SEMA, 0x020D)                                                             \
    X(KELSTATUS_RESOURCE_TIMER_ALLOC, 0x020E)                                                      \
    X(KELSTATUS_RESOURCE_EUID_NOT_ROOT, 0x020F)                                                    \
    /* Tags */                                                                                     \
    X(KELSTATUS_INVALID_TAG, 0x0800)                                                               \
    X(KELSTATUS_TAG_NOT_IN_LIST, 0x0801)                                                           \
    X(KELSTATUS_DATA_SUPRESSED, 0x0802)                                                            \
    /* Serial port */                                                                              \
    X(KELSTATUS_CANT_OPEN_PORT, 0x0700)                                                            \
    X(KELSTATUS_CANT_CLOSE_PORT, 0x0701)                                                           \
    X(KELSTATUS_READ_LENGTH, 0x0702)                                                               \
    X(KELSTATUS_WRITE_LENGTH, 0x0703)                                                              \
    X(KELSTATUS_BAUD_RATE, 0x0704)                                                                 \
    X(KELSTATUS_SIO_SET_PORT, 0x0705)                                                              \
    X(KELSTATUS_SET_BUFFER, 0x0706)                                                                \
    /* Preferences */                                                                              \
    X(KELSTATUS_PREFS_MISSING, 0x031B)                                                             \
    X(KELSTATUS_PREFS_BAD, 0x0301)                                                                 \
    X(KELSTATUS_PREFS_WRONG_VERSION, 0x0302)                                                       \
    X(KELSTATUS_PREFS_BAD_ALLOC, 0x0303)                                                           \
    X(KELSTATUS_PREFS_BAD_OPEN, 0x0304)                                                            \
    X(KELSTATUS_PREFS_BAD_CLOSE, 0x0305)                                                           \
    X(KELSTATUS_PREFS_BAD_SEEK, 0x0306)                                                            \
    X(KELSTATUS_PREFS_BAD_WRITE, 0x0307)                                                           \
    X(KELSTATUS_PREFS_BAD_READ, 0x0308)                                                            \
    X(KELSTATUS_PREFS_ACCESS_DENIED, 0x0309)                                                       \
    X(KELSTATUS_PREFS_BAD_VALUE, 0x030A)                                                           \
    X(KELSTATUS_PREFS_EOF, 0x030B)                                                                 \
    X(KELSTATUS_PREFS_TEMP_FILE, 0x030C)                                                           \
    X(KELSTATUS_PREFS_BAD_FATAL, 0x030D)                                                           \
    /* Settings import and export */                                                               \
    X(KELSTATUS_XSETTINGS_IMPORT_ERR, 0x1100)                                                      \
    X(KELSTATUS_XSETTINGS_BAD_IMPORT_FILE, 0x1101)                                                 \
    X(KELSTATUS_XSETTINGS_NO_IMPORT_FILE, 0x1102)                                                  \
    X(KELSTATUS_XSETTINGS_EXPORT_ERR, 0x1110)                                                      \
    /* Operating system */                                                                         \
    X(KELSTATUS_OS_WRONG_VERSION, 0x0400)                                                          \
    X(KELSTATUS_OS_BAD_SPAWN, 0x0401)                                                              \
    X(KELSTATUS_OS_BAD_EXE, 0x0402)                                                                \
    X(KELSTATUS_OS_MISSING_EXE, 0x0403)                                                            \
    X(KELSTATUS_OS_BAD_DRIVER_LOAD, 0x0404)                                                        \
    X(KELSTATUS_OS_ADB_MANAGER, 0x0405)                                                            \
    X(KELSTATUS_OS_BAD_KERNEL_LOAD, 0x0406)                                                        \
    X(KELSTATUS_OS_BAD_KERNEL_UNLOAD, 0x0407)                                                      \
    X(KELSTATUS_OS_CANT_OPEN_DRIVER, 0x0408)                                                       \
    X(KELSTATUS_OS_DRIVER_CALL, 0x0409)                                                            \
    X(KELSTATUS_OS_INVALID_REFNUM, 0x040A)                                                         \
    X(KELSTATUS_OS_TIME_OF_DAY, 0x040B)                                                            \
    X(KELSTATUS_OS_BAD_SYSTEM_INFO, 0x040C)                                                        \
    X(KELSTATUS_OS_BAD_RESOURCE, 0x040D)                                                           \
    X(KELSTATUS_OS_NO_MORE_PORTS, 0x040E)                                                          \
    X(KELSTATUS_OS_PORT_IN_USE, 0x040F)                                                            \
    X(KELSTATUS_OS_FAILURE, 0x0410)                                                                \
    X(KELSTATUS_OS_BAD_REGISTRY_ACCESS, 0x0411)                                                    \
    X(KELSTATUS_OS_ZERO_SESSION, 0x0412)                                                           \
    /* Tablet */                                                                                   \
    X(KELSTATUS_TABLET_MISSING, 0x0500)                                                            \
    X(KELSTATUS_TABLET_LOST_CONNECTION, 0x0501)                                                    \
    X(KELSTATUS_TABLET_ACQUIRE_AMBIGUOUS, 0x0502)                                                  \
    X(KELSTATUS_TABLET_BAD_OPEN, 0x0503)                                                           \
    X(KELSTATUS_TABLET_BAD_INIT, 0x0504)                                                           \
    X(KELSTATUS_TABLET_BAD_CLOSE, 0x0505)                                                          \
    X(KELSTATUS_TABLET_BAD_FLUSH, 0x0506)                                                          \
    X(KELSTATUS_TABLET_BAD_SEND, 0x0507)                                                           \
    X(KELSTATUS_TABLET_BAD_READ, 0x0508)                                                           \
    X(KELSTATUS_TABLET_BAD_ACQUIRE, 0x0509)                                                        \
    X(KELSTATUS_TABLET_BAD_STREAM, 0x050A)                                                         \
    X(KELSTATUS_TABLET_TIMEOUT, 0x050B)                                                            \
    X(KELSTATUS_TABLET_BAD_PARAM, 0x050C)                                                          \
    X(KELSTATUS_TABLET_BAD_SIZE, 0x050D)                                                           \
    X(KELSTATUS_TABLET_FOUND, 0x050E)                                                              \
    X(KELSTATUS_TABLET_NEED_PRESSURE, 0x050F)                                                      \
    X(KELSTATUS_TABLET_DONT_NEED_PRESSURE, 0x0510)                                                 \
    X(KELSTATUS_TABLET_UNREAD, 0x0511)                                                             \
    X(KELSTATUS_TABLET_CLOSE, 0x0512)                                                              \
    /* Internal */                                                                                 \
    X(KELSTATUS_INTERNAL_UNEXPECTED, 0x0600)                                                       \
    X(KELSTATUS_INTERNAL_MISSING_LINK, 0x0601)                                                     \
    X(KELSTATUS_INTERNAL_BUFFER_OVERFLOW, 0x0602)                                                  \
    X(KELSTATUS_METHOD_NOT_IMPLEMENTED, 0x0603)                                                    \
    X(KELSTATUS_PREFTAG_MISMATCH, 0x0604)                                                          \
    X(KELSTATUS_TAGLIST_CORRUPT, 0x0605)                                                           \
    X(KELSTATUS_OBJECT_NOT_FOUND, 0x0606)                                                          \
    X(KELSTATUS_INVALID_HANDLE, 0x0607)                                                            \
    X(KELSTATUS_CONTEXT_DISABLED, 0x0608)                                                          \
    X(KELSTATUS_POINT_OUTSIDE_CONTEXT, 0x0609)                                                     \
    X(KELSTATUS_DRIVER_OFF, 0x060A)                                                                \
    X(KELSTATUS_MENU_EVENT, 0x060B)                                                                \
    X(KELSTATUS_DONE_PROCESSING, 0x060C)                                                           \
    X(KELSTATUS_ABORTING_STARTUP, 0x060D)                                                          \
    X(KELSTATUS_HARDWARE_ERROR, 0x060E)                                                            \
    X(KELSTATUS_UNKNOWN_DEVICE, 0x060F)                                                            \
    X(KELSTATUS_DEVICE_ALREADY_OPEN, 0x0610)                                                       \
    /* Programming interface */                                                                    \
    X(KELSTATUS_API_BAD_PARAMETER, 0x0900)                                                         \
    X(KELSTATUS_API_BAD_DATA_SIZE, 0x0901)                                                         \
    X(KELSTATUS_API_BAD_IO, 0x0902)                                                                \
    X(KELSTATUS_API_CORRUPT_DATA, 0x0903)                                                          \
    /* Control panel and tablet management */                                                      \
    X(KELSTATUS_CPL_NO_DRIVER, 0x1000)                                                             \
    X(KELSTATUS_CPL_NO_TABLETS, 0x1001)                                                            \
    X(KELSTATUS_CPL_NO_TRANSDUCERS, 0x1002)                                                        \
    X(KELSTATUS_CPL_ALREADY_RUNNING, 0x1003)                                                       \
    X(KELSTATUS_APPSETFORNOSAVE, 0x1004)                                                           \
    X(KELSTATUS_NOCHANGE, 0x1005)                                                                  \
    X(KELSTATUS_NEWTABLETADDED, 0x1006)                                                            \
    X(KELSTATUS_NEWTOOLADDED, 0x1007)                                                              \
    X(KELSTATUS_ADDTABLETFAILED, 0x1008)                                                           \
    X(KELSTATUS_CPL_IPC_FAILURE, 0x1009)                                                           \
    X(KELSTATUS_TABLETSETFORNOSAVE, 0x100A)                                                        \
    X(KELSTATUS_NO_PORTS_AVAILABLE, 0x100B)                                                        \
    X(KELSTATUS_TOOLALREADYADDED, 0x100C)                                                          \
    X(KELSTATUS_TABLET_NOT_SUPPORTED, 0x100D)                                                      \
    X(KELSTATUS_VERSION_MISMATCH, 0x100E)

#define KEL_STATUS_CONSTANT(name, value) constexpr KELSTATUS name = value;
KEL_STATUS_LIST(KEL_STATUS_CONSTANT)
#undef KEL_STATUS_CONSTANT

#define KEL_STATUS_COUNT_ONE(name, value) +1
inline constexpr std::size_t kKelStatusCount = 0 KEL_STATUS_LIST(KEL_STATUS_COUNT_ONE);
#undef KEL_STATUS_COUNT_ONE
static_assert(kKelStatusCount == 126, "the status vocabulary has 126 codes");
