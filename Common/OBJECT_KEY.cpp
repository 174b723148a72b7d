#include "Common/OBJECT_KEY.h"

#include "Common/ParamAssert.h"

#include <cstdio>
#include <cstdlib>
#include <cstring>

namespace
{
// Places checked by IsObjectKeyValid, and copied by CopyObjectKey.
constexpr unsigned kChainPlacesChecked = 10;
constexpr unsigned kChainPlacesCopied = 11;
} // namespace

OBJECT_KEY::OBJECT_KEY(const OBJECT_KEY& source_I)
{
    Clear();
    Set(source_I.mIdentifier, source_I.mReference, source_I.mAddressingMode);
}

OBJECT_KEY& OBJECT_KEY::operator=(const OBJECT_KEY& source_I)
{
    if (this != &source_I)
    {
        Set(source_I.mIdentifier, source_I.mReference, source_I.mAddressingMode);
    }
    return *this;
}

void OBJECT_KEY::CopyString(const char* text_I)
{
    const std::uint32_t size = static_cast<std::uint32_t>(std::strlen(text_I) + 1);
    if (mpStringBuffer == nullptr || mStringBufferSize < size)
    {
        // The text cannot lie inside a buffer too small to hold it, so it survives the
        // reallocation.
        void* grown = mpStringBuffer ? std::realloc(mpStringBuffer, size) : std::calloc(size, 1);
        mpStringBuffer = static_cast<char*>(grown);
        mStringBufferSize = size;
    }
    // The text may be the key's own buffer (a key set from itself).
    std::memmove(mpStringBuffer, text_I, size);
    mReference = mpStringBuffer;
}

KELSTATUS OBJECT_KEY::ReportInvalid() const
{
    if (static_cast<std::uint32_t>(mAddressingMode) >= MAX_ADDRESSING_MODE)
    {
        std::fprintf(stderr, "OBJECT_KEY::IsValid: AddressingMode invalid\n");
        return KELSTATUS_RESOURCE_BAD;
    }
    if (static_cast<std::uint32_t>(mIdentifier) >= MAX_KEY_ID)
    {
        std::fprintf(stderr, "OBJECT_KEY::IsValid: Identifier invalid\n");
        return KELSTATUS_RESOURCE_BAD;
    }
    if (mStringBufferSize != 0 && mpStringBuffer == nullptr)
    {
        std::fprintf(stderr, "OBJECT_KEY::IsValid: claims a string size with no buffer\n");
        return KELSTATUS_RESOURCE_BAD;
    }
    if (mStringBufferSize == 0 && mpStringBuffer != nullptr)
    {
        std::fprintf(stderr, "OBJECT_KEY::IsValid: has string buffer with no size\n");
        return KELSTATUS_RESOURCE_BAD;
    }
    if (mEmptyString != 0)
    {
        std::fprintf(stderr, "OBJECT_KEY::IsValid: The empty string is not empty\n");
        return KELSTATUS_RESOURCE_BAD;
    }
    return KELSTATUS_SUCCESS;
}

KELSTATUS IsObjectKeyValid(const OBJECT_KEY* pObjectKey_I)
{
    unsigned int sentinel = 0;
    return IsObjectKeyValid(pObjectKey_I, sentinel);
}

KELSTATUS IsObjectKeyValid(const OBJECT_KEY* pObjectKey_I, unsigned int& sentinel_O)
{
    if (pObjectKey_I == nullptr)
    {
        std::fprintf(stderr, "IsObjectKeyValid: Null key pointer\n");
        return KELSTATUS_MEMORY_NULL_PTR;
    }
    for (unsigned place = 0; place < kChainPlacesChecked; ++place)
    {
        const KELSTATUS status = pObjectKey_I[place].IsValid();
        if (status != KELSTATUS_SUCCESS)
        {
            return status;
        }
        if (pObjectKey_I[place].Identifier() == EObjectIDNothing)
        {
            sentinel_O = place;
            return KELSTATUS_SUCCESS;
        }
    }
    std::fprintf(stderr, "IsObjectKeyValid: Sentinel value missing\n");
    return KELSTATUS_RESOURCE_BAD;
}

void ResetObjectKey(OBJECT_KEY* pObjectKey_I, unsigned short count_I)
{
    ParamAssert(pObjectKey_I);
    if (pObjectKey_I == nullptr)
    {
        return;
    }
    for (unsigned short place = 0; place < count_I; ++place)
    {
        pObjectKey_I[place].ResetObjectKey();
    }
}

void CopyObjectKey(OBJECT_KEY* pDest_O, const OBJECT_KEY* pSource_I)
{
    ParamAssert(pDest_O);
    ParamAssert(IsObjectKeyValid(pSource_I) == KELSTATUS_SUCCESS);
    if (pDest_O == nullptr || pSource_I == nullptr)
    {
        return;
    }
    for (unsigned place = 0; place < kChainPlacesCopied; ++place)
    {
        const OBJECT_KEY& source = pSource_I[place];
        if (pDest_O != pSource_I)
        {
            pDest_O[place].Set(source.mIdentifier, source.mReference, source.mAddressingMode);
        }
        if (source.Identifier() == EObjectIDNothing)
        {
            break;
        }
    }
}
