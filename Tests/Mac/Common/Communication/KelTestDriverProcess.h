// Test support: an isolated port directory per test and the kel_test_driver peer process.
//
// KelTestPortDirectory points KELTO_PORT_DIR of this process (and of the peers it starts)
// at a fresh directory. KelTestDriverProcess starts the peer, waits until its port answers
// and stops it by its process id (SIGTERM, then SIGKILL); every wait is bounded.
#pragma once

#include <CoreFoundation/CoreFoundation.h>

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
        std::string path = std::filesystem::temp_directory_path() / "kel_messaging_XXXXXX";
        if (mkdtemp(path.data()) != nullptr)
        {
            mPath = path;
            setenv("KELTO_PORT_DIR", mPath.c_str(), 1);
        }
    }
    ~KelTestPortDirectory()
    {
        unsetenv("KELTO_PORT_DIR");
        std::error_code error;
        std::filesystem::remove_all(mPath, error);
    }
    std::string File(const std::string& name) const { return mPath + "/" + name; }

private:
    std::string mPath;
};

inline CFStringRef KelTestMakeString(const std::string& text)
{
    return CFStringCreateWithCString(kCFAllocatorDefault, text.c_str(), kCFStringEncodingUTF8);
}

class KelTestDriverProcess
{
public:
    ~KelTestDriverProcess() { Stop(); }

    // Starts a driver serving `port` (its life bounded to a minute) and waits at most five
    // seconds until the port answers.
    bool Serve(const std::string& port, std::vector<std::string> arguments)
    {
        Stop();
        arguments.insert(arguments.begin(),
                         {KEL_TEST_DRIVER_PATH, "--lifetime", "60", "--port", port});
        std::vector<char*> argv;
        for (auto& argument : arguments)
        {
            argv.push_back(argument.data());
        }
        argv.push_back(nullptr);
        if (posix_spawn(&mPid, KEL_TEST_DRIVER_PATH, nullptr, nullptr, argv.data(), environ) != 0)
        {
            mPid = -1;
            return false;
        }
        CFStringRef name = KelTestMakeString(port);
        bool found = false;
        for (int i = 0; i < 500 && !found; ++i)
        {
            // Released, never invalidated: a remote port is shared by everything in this
            // process that reaches the same name.
            CFMessagePortRef remote = CFMessagePortCreateRemote(kCFAllocatorDefault, name);
            found = remote != nullptr && CFMessagePortIsValid(remote);
            if (remote != nullptr)
            {
                CFRelease(remote);
            }
            if (!found)
            {
                std::this_thread::sleep_for(std::chrono::milliseconds(10));
            }
        }
        CFRelease(name);
        return found;
    }

    // SIGTERM, and SIGKILL when the process has not ended within two seconds.
    void Stop()
    {
        if (mPid <= 0)
        {
            return;
        }
        kill(mPid, SIGTERM);
        bool ended = false;
        for (int i = 0; i < 400 && !ended; ++i)
        {
            ended = waitpid(mPid, nullptr, WNOHANG) != 0;
            if (!ended)
            {
                std::this_thread::sleep_for(std::chrono::milliseconds(5));
            }
        }
        if (!ended)
        {
            kill(mPid, SIGKILL);
            waitpid(mPid, nullptr, 0);
        }
        mPid = -1;
    }

private:
    pid_t mPid = -1;
};

// The requests the driver's journal recorded: message id and bytes.
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
        for (std::size_t i = 0; hex != "-" && i + 1 < hex.size(); i += 2)
        {
            entry.bytes.push_back(
                static_cast<std::uint8_t>(std::stoul(hex.substr(i, 2), nullptr, 16)));
        }
        entries.push_back(entry);
    }
    return entries;
}

inline std::vector<std::uint32_t> KelTestJournalIDs(const std::string& path)
{
    std::vector<std::uint32_t> ids;
    for (const auto& entry : KelTestReadJournal(path))
    {
        ids.push_back(entry.msgid);
    }
    return ids;
}
