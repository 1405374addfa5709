// Which TCP ports other processes of the machine listen at.
#pragma once

#include <sys/types.h>

#include <string>
#include <vector>

struct Listener {
    bool isAnyAddress = false;
    std::string address;  // as inet_ntop writes it
    int port = 0;
    std::string inode;  // of the socket
};

// True for an address that means all addresses of the machine.
bool IsAnyAddress(const std::string& address);

// The sockets in the text of /proc/net/tcp or /proc/net/tcp6 that listen.
std::vector<Listener> ParseListeners(const std::string& text);

// True if a process cannot listen at an address and a port because of this listener.
bool IsInTheWay(const Listener& listener, const std::string& address, int port);

// True for the text of /proc/PID/cgroup of a process of the compute service, also of an earlier
// version's.
bool IsOfComputeService(const std::string& cgroups);

// Returns the process that keeps the compute service from listening at an address and port, such as
// "process 4711 (nginx)", or "another process" if it is unknown. Empty if there is none except the
// compute service and processes of `serviceUser`.
std::string FindPortHolder(const std::string& address, int port, uid_t serviceUser);
