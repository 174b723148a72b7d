// Test support: an isolated port directory per test and the kel_test_driver peer process.
//
// KelTestPortDirectory makes a fresh directory and points KELTO_PORT_DIR of this process at
// it, so that the ports of a test (and of the peers it starts, which inherit the
// environment) are seen by no other test. KelTestDriverProcess starts the peer, waits until
// its port answers, and stops it by its process id (SIGTERM, then SIGKILL), always, and
// with every wait bounded.
#pragma once

#include <CoreFoundation/CoreFoundation.h>

#include <gtest/gtest.h>

#include <signal.h>
#include <spawn.h>
#include <sys/wait.h>
#include <unistd.h>

#include <chrono>
#include <cstdint>
#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <sstream>
#include <string>
#include <thread>
#include <vector>

extern char** environ;

class KelTestPortDirectory
{
public:
    KelTestPortDirectory()
    {
        std::string pattern =
            (std::filesystem::temp_directory_path() / "kel_messaging_XXXXXX").string();
        std::vector<char> buffer(pattern.begin(), pattern.end());
        buffer.push_back('\0');
        if (mkdtemp(buffer.data()) != nullptr)
        {
            mPath = buffer.data();
            setenv("KELTO_PORT_DIR", mPath.c_str(), 1);
        }
    }
    ~KelTestPortDirectory()
    {
        unsetenv("KELTO_PORT_DIR");
        std::error_code error;
        std::filesystem::remove_all(mPath, error);
    }
    KelTestPortDirectory(const KelTestPortDirectory&) = delete;
    KelTestPortDirectory& operator=(const KelTestPortDirectory&) = delete;

    const std::string& Path() const { return mPath; }
    std::string File(const std::string& name) const { return mPath + "/" + name; }

private:
    std::string mPath;
};

inline CFStringRef KelTestMakeString(const std::string& text)
{
    return CFStringCreateWithCString(kCFAllocatorDefault, text.c_str(), kCFStringEncodingUTF8);
}

// Whether a port of that name answers to CFMessagePortCreateRemote within `seconds`.
inline bool KelTestWaitForPort(const std::string& name, double seconds)
{
    CFStringRef portName = KelTestMakeString(name);
    const auto deadline =
        std::chrono::steady_clock::now() + std::chrono::milliseconds(int(seconds * 1000));
    bool found = false;
    while (!found && std::chrono::steady_clock::now() < deadline)
    {
        CFMessagePortRef port = CFMessagePortCreateRemote(kCFAllocatorDefault, portName);
        if (port != nullptr)
        {
            found = CFMessagePortIsValid(port);
            CFMessagePortInvalidate(port);
            CFRelease(port);
        }
        if (!found)
        {
            std::this_thread::sleep_for(std::chrono::milliseconds(10));
        }
    }
    CFRelease(portName);
    return found;
}

class KelTestDriverProcess
{
public:
    KelTestDriverProcess() = default;
    ~KelTestDriverProcess() { Stop(); }
    KelTestDriverProcess(const KelTestDriverProcess&) = delete;
    KelTestDriverProcess& operator=(const KelTestDriverProcess&) = delete;

    // Starts kel_test_driver with these arguments (and a lifetime bound of its own).
    bool Start(const std::vector<std::string>& arguments)
    {
        Stop();
        std::vector<std::string> all = {KEL_TEST_DRIVER_PATH, "--lifetime", "60"};
        all.insert(all.end(), arguments.begin(), arguments.end());
        std::vector<char*> argv;
        for (auto& argument : all)
        {
            argv.push_back(argument.data());
        }
        argv.push_back(nullptr);
        pid_t pid = 0;
        if (posix_spawn(&pid, KEL_TEST_DRIVER_PATH, nullptr, nullptr, argv.data(), environ) != 0)
        {
            return false;
        }
        mPid = pid;
        return true;
    }

    // Starts a driver serving `port` and waits (at most five seconds) until it answers.
    bool Serve(const std::string& port, std::vector<std::string> arguments)
    {
        arguments.insert(arguments.begin(), {"--port", port});
        return Start(arguments) && KelTestWaitForPort(port, 5.0);
    }

    // Waits at most `seconds` for the process to end by itself; its exit status, or -1.
    int WaitForExit(double seconds)
    {
        const auto deadline =
            std::chrono::steady_clock::now() + std::chrono::milliseconds(int(seconds * 1000));
        while (mPid > 0)
        {
            int status = 0;
            const pid_t done = waitpid(mPid, &status, WNOHANG);
            if (done == mPid)
            {
                mPid = -1;
                return WIFEXITED(status) ? WEXITSTATUS(status) : 128 + WTERMSIG(status);
            }
            if (done < 0 || std::chrono::steady_clock::now() >= deadline)
            {
                return -1;
            }
            std::this_thread::sleep_for(std::chrono::milliseconds(5));
        }
        return -1;
    }

    // Stops the process by its id: SIGTERM, and SIGKILL when it has not ended in 2 seconds.
    void Stop()
    {
        if (mPid <= 0)
        {
            return;
        }
        const pid_t pid = mPid;
        kill(pid, SIGTERM);
        if (WaitForExit(2.0) < 0 && mPid > 0)
        {
            kill(pid, SIGKILL);
            waitpid(pid, nullptr, 0);
            mPid = -1;
        }
    }

    pid_t Pid() const { return mPid; }

private:
    pid_t mPid = -1;
};

// One request as the driver's journal recorded it.
struct KelTestJournalEntry
{
    std::uint32_t msgid = 0;
    std::vector<std::uint8_t> bytes;
};

inline std::vector<KelTestJournalEntry> KelTestReadJournal(const std::string& path)
{
    std::vector<KelTestJournalEntry> entries;
    std::ifstream in(path);
    std::string line;
    while (std::getline(in, line))
    {
        std::istringstream fields(line);
        std::string msgid, length, hex;
        fields >> msgid >> length >> hex;
        KelTestJournalEntry entry;
        entry.msgid = static_cast<std::uint32_t>(std::stoul(msgid, nullptr, 16));
        if (hex != "-")
        {
            for (std::size_t i = 0; i + 1 < hex.size(); i += 2)
            {
                entry.bytes.push_back(
                    static_cast<std::uint8_t>(std::stoul(hex.substr(i, 2), nullptr, 16)));
            }
        }
        entries.push_back(entry);
    }
    return entries;
}
