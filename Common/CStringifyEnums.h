// CStringifyEnums<T>: value-to-name tables for trace and error output.
//
// One lazily built singleton per type T holds an ordered map from value to the value's
// source name ("ECommandGet", "KELSTATUS_TABLET_TIMEOUT"), filled once by the type's Init
// from the type's X-list. Names of status codes live under T = unsigned short (KELSTATUS).
//
// GetString looks values up with the map's inserting subscript: asking for an unknown value
// adds an empty entry, so NumStrings grows with every distinct unknown value asked for. This
// is kept on purpose (Dump then shows which unknown values were asked for). A made-up name
// for an unknown value uses the compiler's run-time type name, "_16EEventIdentifier_999"
// ("_t_7" for unsigned short with the usual compilers), and is not stored.
//
// Main thread only: the lazy creation is not guarded.
#pragma once

#include "Common/EAddressingMode.h"
#include "Common/EAppGesture.h"
#include "Common/ECommand.h"
#include "Common/ECommandType.h"
#include "Common/EDisplayAreaType.h"
#include "Common/EEventIdentifier.h"
#include "Common/EGestureMethod.h"
#include "Common/EInputAreaType.h"
#include "Common/ELanguage.h"
#include "Common/ETabletOrientation.h"
#include "Common/ETransducerType.h"
#include "Common/KelStatus.h"

#include <cstddef>
#include <cstdio>
#include <map>
#include <string>
#include <typeinfo>

template <typename T> class CStringifyEnums
{
public:
    // With destroy_I false: the instance, built (and filled) on the first call. With
    // destroy_I true: deletes the instance and its map and returns null; the next ordinary
    // call builds a fresh one.
    static CStringifyEnums* GetInstance(bool destroy_I = false)
    {
        if (destroy_I)
        {
            delete sInstance;
            sInstance = nullptr;
            return nullptr;
        }
        if (sInstance == nullptr)
        {
            sInstance = new CStringifyEnums();
        }
        return sInstance;
    }

    // Assigns every name of the type, one assignment per name, in list order: when two
    // names share a value, the later one wins. Defined per type in CStringifyEnums.cpp.
    void Init();

    // The name of value_I; for an unknown value the empty string, or with makeUpName_I a
    // made-up name. Either way an unknown value is added to the map with an empty name.
    std::string GetString(T value_I, bool makeUpName_I)
    {
        const std::string& name = mMap[value_I];
        if (!name.empty() || !makeUpName_I)
        {
            return name;
        }
        std::string madeUp = "_";
        madeUp += typeid(T).name();
        madeUp += "_";
        madeUp += std::to_string(static_cast<long long>(value_I));
        for (char& c : madeUp)
        {
            if (c == ' ')
            {
                c = '_';
            }
        }
        return madeUp;
    }

    std::size_t NumStrings() const { return mMap.size(); }

    // "Type: [<run-time type name>]", then every name in ascending value order, one per line
    // (empty entries of unknown values included), then one empty line.
    void Dump() const
    {
        std::printf("Type: [%s]\n", typeid(T).name());
        for (const auto& entry : mMap)
        {
            std::puts(entry.second.c_str());
        }
        std::puts("");
    }

private:
    CStringifyEnums() { Init(); }
    CStringifyEnums(const CStringifyEnums&) = delete;
    CStringifyEnums& operator=(const CStringifyEnums&) = delete;

    std::map<T, std::string> mMap;

    inline static CStringifyEnums* sInstance = nullptr;
};

template <> void CStringifyEnums<EEventIdentifier>::Init();
template <> void CStringifyEnums<EAddressingMode>::Init();
template <> void CStringifyEnums<ECommand>::Init();
template <> void CStringifyEnums<unsigned short>::Init();
template <> void CStringifyEnums<ELanguage>::Init();
template <> void CStringifyEnums<ETransducerType>::Init();
template <> void CStringifyEnums<ETabletOrientation>::Init();
template <> void CStringifyEnums<EAppGesture>::Init();
template <> void CStringifyEnums<EGestureMethod>::Init();
template <> void CStringifyEnums<_ECommandType>::Init();
template <> void CStringifyEnums<EInputAreaType>::Init();
template <> void CStringifyEnums<EDisplayAreaType>::Init();
