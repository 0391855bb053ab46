// SPDX-FileCopyrightText: 2026 The Tessel developers
// SPDX-License-Identifier: GPL-3.0-or-later

// session_manager LOG COMMAND [ARGUMENT...]
//
// A desktop session of one command, whose exit code is this program's. On SIGUSR1 it asks all
// clients of the session whether it may end, and writes their answers to LOG, one line each, with
// the number of the client in the order in which they joined:
//   1 takes part, 1 has ended, 1 agrees, 1 cannot, 1 cancels
// It tells no client to end: one that ends does so by itself.

#include <array>
#include <cerrno>
#include <csignal>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <vector>

#include <X11/ICE/ICElib.h>
#include <X11/ICE/ICEutil.h>
#include <X11/SM/SMlib.h>

#include <poll.h>
#include <sys/wait.h>
#include <unistd.h>

// The library's headers keep it to themselves; every session manager calls it. NOLINTNEXTLINE
extern "C" void _IceTransNoListen(const char* protocol);

namespace {

struct Client {
    SmsConn connection;
    IceConn ice;
    int number;
};

std::vector<Client> clients;
int clientsSoFar = 0;
std::FILE* log = nullptr;
volatile std::sig_atomic_t endAsked = 0;

[[noreturn]] void fail(const char* what) {
    std::fprintf(stderr, "session_manager: %s\n", what);
    std::exit(1);
}

void note(SmsConn connection, const char* what) {
    for (const Client& client : clients) {
        if (client.connection == connection) {
            std::fprintf(log, "%d %s\n", client.number, what);
            std::fflush(log);
        }
    }
}

Status registerClient(SmsConn connection, SmPointer /*data*/, char* previousId) {
    if (previousId != nullptr) {
        std::free(previousId);
        return 0;
    }
    char* id = SmsGenerateClientID(connection);
    const Status replied = SmsRegisterClientReply(connection, id);
    std::free(id);
    note(connection, "takes part");
    return replied;
}

void interact(SmsConn connection, SmPointer /*data*/, int /*dialogType*/) {
    SmsInteract(connection);
}

void interactDone(SmsConn connection, SmPointer /*data*/, Bool cancels) {
    if (cancels != 0) {
        note(connection, "cancels");
        for (const Client& client : clients) {
            SmsShutdownCancelled(client.connection);
        }
    }
}

void saveDone(SmsConn connection, SmPointer /*data*/, Bool success) {
    note(connection, success != 0 ? "agrees" : "cannot");
}

void savePhase2(SmsConn connection, SmPointer /*data*/) {
    SmsSaveYourselfPhase2(connection);
}

void saveRequest(SmsConn /*connection*/, SmPointer /*data*/, int /*type*/, Bool /*shutdown*/,
                 int /*interactStyle*/, Bool /*fast*/, Bool /*global*/) {}

void closeConnection(SmsConn connection, SmPointer /*data*/, int count, char** reasons) {
    note(connection, "has ended");
    SmFreeReasons(count, reasons);
    std::erase_if(clients, [=](const Client& c) {
        if (c.connection != connection) {
            return false;
        }
        SmsCleanUp(c.connection);
        IceSetShutdownNegotiation(c.ice, False);
        IceCloseConnection(c.ice);
        return true;
    });
}

void setProperties(SmsConn /*connection*/, SmPointer /*data*/, int count, SmProp** properties) {
    for (int i = 0; i < count; ++i) {
        SmFreeProperty(properties[i]);
    }
    std::free(properties);
}

void deleteProperties(SmsConn /*connection*/, SmPointer /*data*/, int count, char** names) {
    for (int i = 0; i < count; ++i) {
        std::free(names[i]);
    }
    std::free(names);
}

void getProperties(SmsConn connection, SmPointer /*data*/) {
    SmsReturnProperties(connection, 0, nullptr);
}

Status newClient(SmsConn connection, SmPointer /*data*/, unsigned long* mask,
                 SmsCallbacks* callbacks, char** /*reason*/) {
    *mask = SmsRegisterClientProcMask | SmsInteractRequestProcMask | SmsInteractDoneProcMask |
            SmsSaveYourselfRequestProcMask | SmsSaveYourselfP2RequestProcMask |
            SmsSaveYourselfDoneProcMask | SmsCloseConnectionProcMask | SmsSetPropertiesProcMask |
            SmsDeletePropertiesProcMask | SmsGetPropertiesProcMask;
    callbacks->register_client.callback = registerClient;
    callbacks->interact_request.callback = interact;
    callbacks->interact_done.callback = interactDone;
    callbacks->save_yourself_request.callback = saveRequest;
    callbacks->save_yourself_phase2_request.callback = savePhase2;
    callbacks->save_yourself_done.callback = saveDone;
    callbacks->close_connection.callback = closeConnection;
    callbacks->set_properties.callback = setProperties;
    callbacks->delete_properties.callback = deleteProperties;
    callbacks->get_properties.callback = getProperties;
    clients.push_back({connection, SmsGetIceConnection(connection), ++clientsSoFar});
    return 1;
}

Bool acceptAnybody(char* /*host*/) {
    return True;
}

/// Connections that have not yet joined the session, and those of the clients.
std::vector<IceConn> connections;

void watchConnection(IceConn connection, IcePointer /*data*/, Bool opening, IcePointer* /*watch*/) {
    if (opening != 0) {
        connections.push_back(connection);
    } else {
        std::erase(connections, connection);
    }
}

void connectionBroke(IceConn connection) {
    // A program that crashed does not say that it leaves.
    std::erase(connections, connection);
    std::erase_if(clients, [=](const Client& client) { return client.ice == connection; });
}

std::vector<IceListenObj> listen() {
    std::array<char, 256> reason{};
    std::array<char, 16> vendor{"test"};
    std::array<char, 16> release{"1"};
    const int size = static_cast<int>(reason.size());
    if (SmsInitialize(vendor.data(), release.data(), newClient, nullptr, acceptAnybody, size,
                      reason.data()) == 0) {
        fail(reason.data());
    }
    IceAddConnectionWatch(watchConnection, nullptr);
    IceSetIOErrorHandler(connectionBroke);
    _IceTransNoListen("tcp");
    int count = 0;
    IceListenObj* objects = nullptr;
    if (IceListenForConnections(&count, &objects, size, reason.data()) == 0) {
        fail(reason.data());
    }
    for (int i = 0; i < count; ++i) {
        IceSetHostBasedAuthProc(objects[i], acceptAnybody);
    }
    ::setenv("SESSION_MANAGER", IceComposeNetworkIdList(count, objects), 1);
    return {objects, objects + count};
}

void askToEnd() {
    for (const Client& client : clients) {
        SmsSaveYourself(client.connection, SmSaveBoth, True, SmInteractStyleAny, False);
    }
}

void acceptFrom(IceListenObj listener) {
    IceAcceptStatus status = IceAcceptSuccess;
    IceAcceptConnection(listener, &status);
    if (status != IceAcceptSuccess) {
        fail("a program could not be let in");
    }
}

/// Handles the messages of clients and of programs that want to become one.
void answer(const std::vector<IceListenObj>& listeners, const sigset_t* whileWaiting) {
    const std::vector<IceConn> open = connections;
    std::vector<pollfd> descriptors;
    descriptors.reserve(listeners.size() + open.size());
    for (IceListenObj listener : listeners) {
        descriptors.push_back({IceGetListenConnectionNumber(listener), POLLIN, 0});
    }
    for (IceConn connection : open) {
        descriptors.push_back({IceConnectionNumber(connection), POLLIN, 0});
    }
    if (::ppoll(descriptors.data(), descriptors.size(), nullptr, whileWaiting) < 0) {
        return;
    }
    for (std::size_t i = 0; i < descriptors.size(); ++i) {
        if (descriptors[i].revents == 0) {
            continue;
        }
        if (i < listeners.size()) {
            acceptFrom(listeners[i]);
        } else {
            IceProcessMessages(open[i - listeners.size()], nullptr, nullptr);
        }
    }
}

} // namespace

int main(int argc, char** argv) {
    if (argc < 3 || (log = std::fopen(argv[1], "w")) == nullptr) {
        fail("usage: session_manager LOG COMMAND [ARGUMENT...]");
    }
    // Signals are delivered only while it waits.
    sigset_t blocked;
    sigset_t before;
    sigemptyset(&blocked);
    sigaddset(&blocked, SIGUSR1);
    sigaddset(&blocked, SIGCHLD);
    ::sigprocmask(SIG_BLOCK, &blocked, &before);
    std::signal(SIGUSR1, [](int) { endAsked = 1; });
    std::signal(SIGCHLD, [](int) {});
    std::signal(SIGPIPE, SIG_IGN);

    const std::vector<IceListenObj> listeners = listen();
    const pid_t command = ::fork();
    if (command == 0) {
        ::sigprocmask(SIG_SETMASK, &before, nullptr);
        ::execvp(argv[2], argv + 2);
        std::perror(argv[2]);
        ::_exit(127);
    }
    int status = 0;
    while (::waitpid(command, &status, WNOHANG) == 0) {
        if (endAsked != 0) {
            endAsked = 0;
            askToEnd();
        }
        answer(listeners, &before);
    }
    return WIFEXITED(status) ? WEXITSTATUS(status) : 1;
}
