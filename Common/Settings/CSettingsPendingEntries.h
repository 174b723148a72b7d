// The entries of a container being read, gathered before the container takes them.
//
// A container read element by element grows its storage 1, 2, 4, 8, ... and moves its
// entries at every step; reading a tree of a few hundred nodes spent more time there than in
// decoding. Instead every container reader of a thread pushes onto one stack that the thread
// keeps from read to read, and hands its own entries (those above the mark it took) to the
// container once, in one block of the right size. A nested container pushes and takes its
// entries before its parent pushes the next one, so each reader's entries stay contiguous.
//
// The destructor drops the reader's entries, also when a malformed archive throws out of it.
// When the outermost reader finishes, a stack grown past kKeptCapacity is given back, so that
// one huge archive does not keep its memory for the thread's lifetime.
#pragma once

#include <cstddef>
#include <span>
#include <utility>
#include <vector>

template <class TEntry> class CSettingsPendingEntries
{
public:
    static constexpr size_t kKeptCapacity = 4096;

    CSettingsPendingEntries() : mStack(Stack()), mFirst(mStack.size()) {}
    ~CSettingsPendingEntries()
    {
        mStack.erase(mStack.begin() + static_cast<std::ptrdiff_t>(mFirst), mStack.end());
        if (mFirst == 0 && mStack.capacity() > kKeptCapacity)
        {
            std::vector<TEntry>().swap(mStack);
        }
    }
    CSettingsPendingEntries(const CSettingsPendingEntries&) = delete;
    CSettingsPendingEntries& operator=(const CSettingsPendingEntries&) = delete;

    void Push(TEntry&& entry_I) { mStack.push_back(std::move(entry_I)); }
    // Builds an entry in place and gives its index in Entries(). The index stays valid while
    // nested readers push and drop their own entries above it.
    template <class... TArgs> size_t Emplace(TArgs&&... args_I)
    {
        mStack.emplace_back(std::forward<TArgs>(args_I)...);
        return mStack.size() - 1 - mFirst;
    }

    // This reader's entries, in the order pushed. Valid until the next Push on this thread.
    std::span<TEntry> Entries() { return {mStack.data() + mFirst, mStack.size() - mFirst}; }

private:
    static std::vector<TEntry>& Stack()
    {
        thread_local std::vector<TEntry> stack;
        return stack;
    }

    std::vector<TEntry>& mStack;
    size_t mFirst;
};
