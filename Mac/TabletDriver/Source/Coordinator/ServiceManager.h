// The coordinator and the service manager that started it (systemd, with Type=notify): it
// says when it serves its port and when it is on its way out, and keeps its log lines from
// reaching the journal twice. Where there is no such manager (macOS, a coordinator started
// by hand) all of this does nothing.
#pragma once

namespace ServiceManager
{
// Whether standard error is the journal stream that systemd connected: JOURNAL_STREAM then
// names its device and inode. System log lines are not copied to standard error then, or
// the journal would get each of them twice.
bool StandardErrorIsJournal();
// READY=1: the coordinator's port is served.
void NotifyReady();
// STOPPING=1: the coordinator is ending.
void NotifyStopping();
} // namespace ServiceManager
