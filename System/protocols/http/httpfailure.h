// SPDX-License-Identifier: MIT
/// @file
/// Why an HTTP connection failed.
#ifndef KESTROVA_SYSTEM_PROTOCOLS_HTTP_HTTPFAILURE_H
#define KESTROVA_SYSTEM_PROTOCOLS_HTTP_HTTPFAILURE_H

#include <cstddef>

/// The reason for a failure of HTTPConnection, as HTTPConnection::lastFailure() returns it. A plain
/// record: copying it allocates nothing.
struct HTTPFailure {
    /// What has failed.
    enum Reason {
        eNone,            ///< nothing has failed
        eAddress,         ///< httpURL::parse() does not accept the address, or it is null
        eUnknownHost,     ///< the host does not exist or has no IPv4 address
        eLookup,          ///< the resolver failed or got no answer; mErrno may be 0
        eSocket,          ///< no socket could be made, or Read() was called without one
        eRefused,         ///< the host refused the connection: nobody listens on the port
        eConnectTimeOut,  ///< no connection within 30 s
        eConnect,         ///< the connection failed otherwise, for example without a route
        eSendTimeOut,     ///< the request was not sent within 30 s; a part of it may be
        eSend,            ///< the request could not be sent; Open() returns true all the same
        eReceiveTimeOut,  ///< nothing was received for 30 s
        eBroken,          ///< receiving failed, for example because the server reset the connection
        eEnded,           ///< the server closed the connection before the end of the header
        eHeader,          ///< the reply is no HTTP reply
        eLongHeader,      ///< a line of the header is longer than 1022 characters
        eStatus,          ///< the status is not 200: mStatus and mPhrase
        eLength,          ///< sysChainFetcher only: the body has not the announced length, or does
                          ///< not fit
    };
    /// Room for the reason phrase, in bytes, with its terminator.
    static constexpr std::size_t kPhraseSize = 128;

    Reason mReason;             ///< what has failed; the other members belong to it
    int mErrno;                 ///< errno of the failed call; 0 when no call has failed
    int mStatus;                ///< HTTP status of eStatus; otherwise 0
    char mPhrase[kPhraseSize];  ///< reason phrase of eStatus as received, cut to fit; otherwise ""
};

#endif
