// One link of an addressing chain, and the functions over a chain.
//
// A request such as "get parameter X of transducer 2 of tablet 1" is a chain of keys,
// outermost first, ended by a key whose identifier is EObjectIDNothing (the sentinel).
// Keys live in fixed arrays and are copied by value; a key in EAddrModeByString owns a
// private copy of its string, and its mReference then points at that copy, never at the
// caller's text.
#pragma once

#include "Common/EAddressingMode.h"
#include "Common/EEventIdentifier.h"
#include "Common/KelStatus.h"

#include <cstdint>
#include <cstdlib>

struct OBJECT_KEY
{
    EAddressingMode mAddressingMode;
    EEventIdentifier mIdentifier;
    // The index or ID as an integer, or in EAddrModeByString the key's own string buffer.
    void* mReference;
    // What a string key reads when it has no buffer; always 0.
    char mEmptyString;
    // Private copy of the string with its terminator; null when there is none.
    char* mpStringBuffer;
    // Capacity of mpStringBuffer in bytes; 0 exactly when there is no buffer.
    std::uint32_t mStringBufferSize;

    // The key functions below are inline: every packet made, cleared or checked runs them
    // over the places of its chain, several times per request.
    OBJECT_KEY(EEventIdentifier identifier_I = EObjectIDNothing, void* reference_I = nullptr,
               EAddressingMode mode_I = EAddrModeByIndex)
    {
        Clear();
        Set(identifier_I, reference_I, mode_I);
    }
    OBJECT_KEY(const OBJECT_KEY& source_I);
    OBJECT_KEY& operator=(const OBJECT_KEY& source_I);
    ~OBJECT_KEY() { FreeStringBuffer(); }

    // Stores the three values. In EAddrModeByString with a string, copies the string into
    // the key's buffer, growing it to exactly the string's size when it is too small (a
    // larger buffer keeps its capacity), and points mReference at the copy. In any other
    // case the buffer is freed and the reference kept as given.
    void Set(EEventIdentifier identifier_I, void* reference_I, EAddressingMode mode_I)
    {
        mAddressingMode = mode_I;
        mIdentifier = identifier_I;
        mReference = reference_I;
        if (mode_I == EAddrModeByString && reference_I != nullptr)
        {
            CopyString(static_cast<const char*>(reference_I));
        }
        else
        {
            FreeStringBuffer();
        }
    }

    // KELSTATUS_RESOURCE_BAD with one line on standard error for a bad mode, a bad
    // identifier, or an inconsistent string buffer; the sentinel is a valid key.
    KELSTATUS IsValid() const { return HasValidFields() ? KELSTATUS_SUCCESS : ReportInvalid(); }

    void ResetObjectKey()
    {
        mAddressingMode = static_cast<EAddressingMode>(0);
        mIdentifier = static_cast<EEventIdentifier>(0);
        mReference = nullptr;
        FreeStringBuffer();
    }
    void SetToAllSubordinate() { mAddressingMode = EAddrModeAllSubordinate; }
    EEventIdentifier Identifier() const { return mIdentifier; }

    // The text a string key carries: its buffer, or the empty string without one.
    const char* String() const { return mpStringBuffer ? mpStringBuffer : &mEmptyString; }

private:
    void Clear()
    {
        mAddressingMode = static_cast<EAddressingMode>(0);
        mIdentifier = static_cast<EEventIdentifier>(0);
        mReference = nullptr;
        mEmptyString = 0;
        mpStringBuffer = nullptr;
        mStringBufferSize = 0;
    }
    // Frees the buffer, if there is one (most keys have none), and leaves none.
    void FreeStringBuffer()
    {
        if (mpStringBuffer != nullptr)
        {
            std::free(mpStringBuffer);
            mpStringBuffer = nullptr;
        }
        mStringBufferSize = 0;
    }
    // Copies the text into the key's buffer and points mReference at the copy.
    void CopyString(const char* text_I);
    bool HasValidFields() const
    {
        return static_cast<std::uint32_t>(mAddressingMode) < MAX_ADDRESSING_MODE &&
               static_cast<std::uint32_t>(mIdentifier) < MAX_KEY_ID &&
               (mStringBufferSize == 0) == (mpStringBuffer == nullptr) && mEmptyString == 0;
    }
    // The line on standard error for the first check that fails, and its status.
    KELSTATUS ReportInvalid() const;
};

// KELSTATUS_SUCCESS when the first ten places hold valid keys up to and including a
// sentinel; so a valid chain has at most nine real keys, however long its array.
KELSTATUS IsObjectKeyValid(const OBJECT_KEY* pObjectKey_I);
// The same, with the place of the sentinel (0 to 9) in `sentinel_O` when the chain is valid.
KELSTATUS IsObjectKeyValid(const OBJECT_KEY* pObjectKey_I, unsigned int& sentinel_O);

// Resets the first count keys of the chain.
void ResetObjectKey(OBJECT_KEY* pObjectKey_I, unsigned short count_I);

// Copies the source chain up to and including its sentinel (at most eleven keys); keys of
// the destination after the copied sentinel are left as they were.
void CopyObjectKey(OBJECT_KEY* pDest_O, const OBJECT_KEY* pSource_I);
