// Every system call of the message port transport goes through this table, so that tests
// can replace single calls to inject faults (a failing connect, short writes, EINTR).
#pragma once

#include <poll.h>
#include <sys/socket.h>
#include <sys/types.h>

struct SPortTransport
{
    int (*socket)(int domain, int type, int protocol);
    int (*connect)(int fd, const sockaddr* address, socklen_t length);
    int (*bind)(int fd, const sockaddr* address, socklen_t length);
    int (*listen)(int fd, int backlog);
    int (*accept4)(int fd, sockaddr* address, socklen_t* length, int flags);
    ssize_t (*recv)(int fd, void* buffer, size_t length, int flags);
    ssize_t (*send)(int fd, const void* buffer, size_t length, int flags);
    int (*poll)(pollfd* fds, nfds_t count, int timeout);
    int (*close)(int fd);
    int (*getsockopt)(int fd, int level, int name, void* value, socklen_t* length);
};

// The table in use: the system's calls unless a test replaced it.
const SPortTransport& PortTransport();
// The system's calls, for replacements that pass most calls through.
const SPortTransport& SystemPortTransport();
// Replaces the table (the caller keeps `transport` alive); NULL puts the system's back.
void SetPortTransport(const SPortTransport* transport);
