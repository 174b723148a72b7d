// Event classes, IDs and keywords of the standard suites that this program handles.
#pragma once

#include <AE/AEDataModel.h>

enum
{
    kAECoreSuite = 'core',
    kAECountElements = 'cnte',
    kAECreateElement = 'crel',
    kAEDelete = 'delo',
    kAEGetData = 'getd',
    kAEGetDataSize = 'dsiz',
    kAESetData = 'setd',
    kAESave = 'save',
    keyAEObjectClass = 'kocl'
};
