/** @file
 * Sockets: a small blocking TCP layer over IPv4.
 *
 * Ordinary network failures are not fatal: every operation that can fail returns null on success
 * and otherwise a newly allocated message, which the caller shows or logs and frees with
 * vn_free. Messages for a system error are the system's own (vn_strerror), or "Unknown
 * error" when errno is 0. Descriptors and counts come back through out-parameters, which are
 * written on success only. If memory for a message runs out, the process ends (vn_strdup,
 * failure.h).
 *
 * The application must handle SIGPIPE: writing to a connection that the peer has closed raises it,
 * and by default it ends the process. A server should therefore start with
 *
 *     signal(SIGPIPE, SIG_IGN);
 *
 * and then gets the failure as a message ("Broken pipe").
 *
 * Limits: IPv4 only, the first address of a name only, no timeout while connecting, and ports are
 * taken modulo 65536. Descriptors are not close-on-exec: programs that the process starts inherit
 * them, unless the caller sets FD_CLOEXEC with fcntl.
 *
 * Thread safety: no state is shared; calls on different descriptors are independent. Every call
 * may block.
 */
#ifndef VNCOMMON_SOCKETS_H
#define VNCOMMON_SOCKETS_H

#include <vncommon/api.h>
#include <vncommon/buffers.h>

VN_BEGIN_DECLS

/** Returns 0: there is nothing to set up on this platform. */
VN_API int vn_socketInit(void);

/** Does nothing: there is nothing to clean up on this platform. */
VN_API void vn_socketCleanup(void);

/** Connects to host (a dotted address, or a name whose first IPv4 address is taken; null means
 * "127.0.0.1") and port. On success *fd is the caller's, to be closed with vn_socketClose.
 * Failures: "Failed to resolve hostname." (also if memory for the answer runs out), "Failed to
 * create network socket.", "Failed to connect to host." The system's reason for the last one is
 * only logged, as `"connect: %s\n"` at DEBUG. */
VN_NODISCARD VN_API char* vn_socketConnect(const char* host, int port, int* fd) VN_MALLOC;

/** Listens on all local addresses with SO_REUSEADDR and a backlog of 20. Port 0 lets the system
 * choose one (see getsockname). Failures: "Failed to create listening socket.", "Failed to set
 * SO_REUSEADDR option.", "Failed to bind listening socket.", "Failed to listen on listening
 * socket."; the socket made is closed.
 *
 * While some 20 connections wait to be accepted the kernel drops further ones, and their clients
 * try again after a second or more. So accept in a loop that hands connections to other threads.
 * For a longer backlog make the socket with listen() and take connections with accept(), not with
 * vn_socketAccept, which sets 20 again; the other calls take these descriptors. */
VN_NODISCARD VN_API char* vn_createListeningSocket(int port, int* fd) VN_MALLOC;

/** Takes the next connection. Later receives and sends on it time out after 10 seconds without
 * progress; they then fail with the system's message for EAGAIN ("Resource temporarily
 * unavailable").
 * Failures: "The accept() call failed", and "Failed to listen on listening socket." when the
 * descriptor cannot listen.
 * Compat: in the second case THE DESCRIPTOR IS CLOSED; callers that loop on accept rely on it.
 * If a timeout cannot be set, the connection is still returned, and
 * `"Failed to set SO_RCVTIMEO option: %s"` (or SO_SNDTIMEO) is logged as a warning. */
VN_NODISCARD VN_API char* vn_socketAccept(int listeningFd, int* fd) VN_MALLOC;

/** Receives once, up to *length bytes; on success *length is the count received, at least 1.
 * "Network connection lost." when the peer has closed, and for a *length of 0, which looks the
 * same.
 * Compat: an interrupted receive is a failure and not retried, so that a signal can end a wait. */
VN_NODISCARD VN_API char* vn_socketReadBuffer(int fd, unsigned* length, uint8_t* buffer) VN_MALLOC;

/** Appends the next line to the string buffer (which must be initialised), without its line feed
 * and without any carriage return. There is no limit on its length. Failures as for
 * vn_socketReadBuffer; the part of the line that was read stays in the buffer. Cost: one system
 * call per byte. */
VN_NODISCARD VN_API char* vn_socketReadLine(int fd, CStringBuffer* line) VN_MALLOC;

/** Sends the whole string, without its terminator, with as many calls of send() as needed; an
 * interrupted send is a failure and not retried. After a failure, an unknown part may have been
 * sent. An empty string sends once with length 0. */
VN_NODISCARD VN_API char* vn_socketWrite(int fd, const char* text) VN_MALLOC;

/** Sends length bytes as vn_socketWrite does. A length of 0 sends once. */
VN_NODISCARD VN_API char* vn_socketWriteBuffer(int fd, unsigned length,
                                               const uint8_t* buffer) VN_MALLOC;

/** Closes the descriptor. Returns the result of close(). */
VN_API int vn_socketClose(int fd);

VN_END_DECLS

#endif
