// _ECommandType (ECommandType): the functions a button can be given.
//
// 60 to 68 are unused and EButtonTypeMax is 69: the gap is deliberate and kept. The values
// from 1000 on name defaults and groups of functions rather than single functions.
#pragma once

#include "Common/KelEnumList.h"

// X(name, value).
#define KEL_COMMAND_TYPE_LIST(X)                                                                   \
    X(ENone, 0)                                                                                    \
    X(ELeftClick, 1)                                                                               \
    X(EMiddleClick, 2)                                                                             \
    X(ERightClick, 3)                                                                              \
    X(ELeftDoubleClick, 4)                                                                         \
    X(EMiddleDoubleClick, 5)                                                                       \
    X(ERightDoubleClick, 6)                                                                        \
    X(ELeftClickLock, 7)                                                                           \
    X(EKeystrokes, 8)                                                                              \
    X(EModifiers, 9)                                                                               \
    X(EPressureHold, 10)                                                                           \
    X(EModeToggle, 11)                                                                             \
    X(EMacro_Deprecated, 12)                                                                       \
    X(EScreenMacro, 13)                                                                            \
    X(EAutoErase, 14)                                                                              \
    X(EBumbleFree, 15)                                                                             \
    X(EEraseKeystroke, 16)                                                                         \
    X(EEraseModifier, 17)                                                                          \
    X(EEraseMacro_Deprecated, 18)                                                                  \
    X(EButton4Click, 19)                                                                           \
    X(EButton5Click, 20)                                                                           \
    X(EMiddleClickLock, 21)                                                                        \
    X(ERightClickLock, 22)                                                                         \
    X(ERunApplication, 23)                                                                         \
    X(EToggleInking, 24)                                                                           \
    X(ETabletPCTip, 25)                                                                            \
    X(ETabletPCEraser, 26)                                                                         \
    X(ETabletPCBarrel, 27)                                                                         \
    X(ETabletPCBarrel2, 28)                                                                        \
    X(EAppDefined, 29)                                                                             \
    X(ETPCInputPanel, 30)                                                                          \
    X(EDisplayToggle, 31)                                                                          \
    X(ETouchStripModifier, 32)                                                                     \
    X(EButtonPanning, 33)                                                                          \
    X(EButtonSetOverride, 34)                                                                      \
    X(EBack, 35)                                                                                   \
    X(EForward, 36)                                                                                \
    X(EJournal, 37)                                                                                \
    X(EShowDesktop, 38)                                                                            \
    X(ESwitchApp, 39)                                                                              \
    X(EHelp, 40)                                                                                   \
    X(ERadialMenu, 41)                                                                             \
    X(EFinePoint, 42)                                                                              \
    X(ETouchToggle, 43)                                                                            \
    X(EAutoScrollZoom, 44)                                                                         \
    X(EScroll, 45)                                                                                 \
    X(EZoom, 46)                                                                                   \
    X(ESkip, 47)                                                                                   \
    X(ERunVireoDock, 48)                                                                           \
    X(ERunVireoPreferences, 49)                                                                    \
    X(EShowAllWindows, 50)                                                                         \
    X(ERotate, 51)                                                                                 \
    X(EToggleOnScreenKeyboard, 52)                                                                 \
    X(EToggleControlPanel, 53)                                                                     \
    X(EShowAllAppWindows, 54)                                                                      \
    X(EShowNextFullScreenApp, 55)                                                                  \
    X(EShowPreviousFullScreenApp, 56)                                                              \
    X(ELCDSettings, 57)                                                                            \
    X(EShowDictionary, 58)                                                                         \
    X(EMetroDesktopToggle, 59)                                                                     \
    X(EButtonTypeMax, 69)                                                                          \
    X(EButtonDefault, 1000)                                                                        \
    X(EButtonRestoreBackup, 1001)                                                                  \
    X(EClicksGroup, 1010)                                                                          \
    X(ETabletPCGroup, 1011)

enum _ECommandType : int
{
    KEL_COMMAND_TYPE_LIST(KEL_ENUM_ENUMERATOR)
};
typedef _ECommandType ECommandType;

static_assert(KelCountNames({KEL_COMMAND_TYPE_LIST(KEL_ENUM_VALUE)}) == 65);
