// SPDX-License-Identifier: MIT
/// @file
/// Why an HTTP connection failed.
#ifndef KESTROVA_SYSTEM_PROTOCOLS_HTTP_HTTPFAILURE_H
#define KESTROVA_SYSTEM_PROTOCOLS_HTTP_HTTPFAILURE_H

#include <cstddef>

/// The reason for a failure of HTTPConnection, as HTTPConnection::lastFailure() returns it. A plain
/// record: copying it allocates nothing.
struct HTTPFailure {
    /// Failure of a connection.
    enum Reason {
        eNone,            ///< no failure
        eAddress,         ///< httpURL::parse() does not accept the address, or the address is null
        eUnknownHost,     ///< the host does not exist or has no IPv4 address
        eLookup,          ///< the resolver failed or received no answer; mErrno may be 0
        eSocket,          ///< no socket could be created, or Read() was called without a socket
        eRefused,         ///< the host refused the connection: no process listens on the port
        eConnectTimeOut,  ///< no connection within 30 s
        eConnect,         ///< the connection failed otherwise, for example without a route
        eSendTimeOut,     ///< the request was not sent completely within 30 s
        eSend,            ///< the request could not be sent; Open() still returns true
        eReceiveTimeOut,  ///< no data was received for 30 s
        eBroken,          ///< receiving failed, for example because the server reset the connection
        eEnded,           ///< the server closed the connection before the end of the header
        eHeader,          ///< the reply is not an HTTP reply
        eLongHeader,      ///< a line of the header is longer than 1022 characters
        eStatus,          ///< the status is not 200: mStatus and mPhrase
        eLength,  ///< sysChainFetcher only: the body differs from the announced length or does not
                  ///< fit
    };
    /// Size of the reason phrase, in bytes, with its terminator.
    static constexpr std::size_t kPhraseSize = 128;

    Reason mReason;             ///< the failure, to which the other members belong
    int mErrno;                 ///< errno of the failed call; 0 if no call failed
    int mStatus;                ///< HTTP status of eStatus; otherwise 0
    char mPhrase[kPhraseSize];  ///< reason phrase of eStatus as received, truncated to fit;
                                ///< otherwise ""
};

#endif
