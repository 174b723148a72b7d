// A fresh directory (mode 0700) under the temporary directory, made this process's
// KELTO_PORT_DIR for its lifetime, so that the message ports a test serves and reaches are
// its own. The previous value of KELTO_PORT_DIR comes back, and the directory is removed with
// everything in it, at the end. Throws std::runtime_error when the directory cannot be made.
#pragma once

#include <cerrno>
#include <cstdlib>
#include <cstring>
#include <filesystem>
#include <optional>
#include <stdexcept>
#include <string>

class ScopedPortDirectory
{
public:
    ScopedPortDirectory()
    {
        std::string pattern =
            (std::filesystem::temp_directory_path() / "kelto-ports-XXXXXX").string();
        if (mkdtemp(pattern.data()) == nullptr)
        {
            throw std::runtime_error("cannot make a port directory from " + pattern + ": " +
                                     std::strerror(errno));
        }
        mPath = pattern;
        if (const char* previous = std::getenv("KELTO_PORT_DIR"))
        {
            mPreviousValue = previous;
        }
        setenv("KELTO_PORT_DIR", mPath.c_str(), 1);
    }
    ~ScopedPortDirectory()
    {
        if (mPreviousValue)
        {
            setenv("KELTO_PORT_DIR", mPreviousValue->c_str(), 1);
        }
        else
        {
            unsetenv("KELTO_PORT_DIR");
        }
        std::error_code ignored;
        std::filesystem::remove_all(mPath, ignored);
    }
    ScopedPortDirectory(const ScopedPortDirectory&) = delete;
    ScopedPortDirectory& operator=(const ScopedPortDirectory&) = delete;

    const std::string& Path() const { return mPath; }

private:
    std::string mPath;
    std::optional<std::string> mPreviousValue;
};
