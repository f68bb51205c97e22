// SPDX-License-Identifier: Apache-2.0
// The access server's connection to the backend daemon, and the wire framing both ends speak.
// Hosts include this; business modules never do (to them tagUNIX_SOCKET_S is opaque).
//
// Wire framing, one exchange on a Unix-domain stream socket, all integers little-endian:
//   request: TALAPI_WIRE_REQUEST_S (24 bytes), then uiBodyLen body bytes (at most 21208;
//            RestSendSynUnixMsg sends a whole vwCmdBody, SetCommon only the record).
//   reply:   the 200-byte head of MSG_DATA, then uiDataLen payload bytes (at most 21208).
//            The head carries uiMagic = TALAPI_WIRE_REPLY_MAGIC, enMsgType and enCmdType and
//            ullValue echoed from the request, uiDataLen, recvMsg (the daemon's reply number)
//            and Result (0 success, anything else the daemon's failure code); every other head
//            byte is zero. The receiver zero-fills the payload beyond uiDataLen.
// A read command carries a whole vwCmdBody (GetCommon, RestSendSynUnixMsg); a write command
// carries exactly its record (SetCommon), which is how the daemon tells them apart for commands
// that serve both. A connection carries any number of exchanges, one at a time. A reply whose magic
// or command does not match, or whose length is too large, is malformed; either side then closes
// the connection. The daemon answers a request it cannot serve with a non-zero Result.
#ifndef TALAPI_UNIX_SOCKET_H
#define TALAPI_UNIX_SOCKET_H

#include <cstddef>

#include "talapi_types.h"

constexpr unsigned int TALAPI_WIRE_REQUEST_MAGIC = 0x51525756u;  // "VWRQ"
constexpr unsigned int TALAPI_WIRE_REPLY_MAGIC = 0x50525756u;    // "VWRP"

struct TALAPI_WIRE_REQUEST_S {
    unsigned int uiMagic;
    unsigned int enMsgType;
    unsigned int enCmdType;
    unsigned int uiBodyLen;
    unsigned long long ullValue;
};
static_assert(sizeof(TALAPI_WIRE_REQUEST_S) == 24, "request head is 24 bytes");
static_assert(offsetof(TALAPI_WIRE_REQUEST_S, ullValue) == 16, "value at 16");

constexpr std::size_t TALAPI_PEER_PATH_LEN = 108;  // sun_path of struct sockaddr_un
constexpr unsigned int TALAPI_BACKEND_TIMEOUT_MS_DEFAULT = 3000;

// One connection to the daemon, used by one thread at a time. Connected on first use, to the
// redirected peer path; closed after any failed exchange and reconnected on the next.
struct tagUNIX_SOCKET_S {
    int iFd;                            // -1 while not connected
    char szPeer[TALAPI_PEER_PATH_LEN];  // resolved path iFd is connected to
    unsigned int uiTimeoutMs;           // bound on one whole exchange, connect included
};

void UnixSocketInit(tagUNIX_SOCKET_S *pstSocket);
void UnixSocketClose(tagUNIX_SOCKET_S *pstSocket);

// Redirection of peer paths: when the environment variable TALAPI_SOCKET_ROOT names a directory,
// the peer path P is used as $TALAPI_SOCKET_ROOT/P ("/tmp/A" becomes "<root>/tmp/A"); without
// it P is used as given. Writes the path to use into pcOut; -1 when it does not fit.
int UnixSocketResolvePeerPath(const char *pcPeerPath, char *pcOut, std::size_t uCapacity);

#endif
