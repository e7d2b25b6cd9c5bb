#pragma once

#include <curl/curl.h>

#include <cstdint>

namespace ptzd::internet {

// The numbers by which the Windows Internet API tells why a call failed.
inline constexpr std::uint32_t ErrorInvalidHandle = 6;
inline constexpr std::uint32_t ErrorOutOfMemory = 14;
inline constexpr std::uint32_t ErrorInvalidParameter = 87;
inline constexpr std::uint32_t ErrorInsufficientBuffer = 122;
inline constexpr std::uint32_t ErrorTimeout = 12002;
inline constexpr std::uint32_t ErrorInternal = 12004;
inline constexpr std::uint32_t ErrorInvalidUrl = 12005;
inline constexpr std::uint32_t ErrorUnrecognizedScheme = 12006;
inline constexpr std::uint32_t ErrorNameNotResolved = 12007;
inline constexpr std::uint32_t ErrorInvalidOption = 12009;
inline constexpr std::uint32_t ErrorShutdown = 12012;
inline constexpr std::uint32_t ErrorIncorrectHandleType = 12018;
inline constexpr std::uint32_t ErrorIncorrectHandleState = 12019;
inline constexpr std::uint32_t ErrorCannotConnect = 12029;
inline constexpr std::uint32_t ErrorConnectionAborted = 12030;
inline constexpr std::uint32_t ErrorConnectionReset = 12031;
inline constexpr std::uint32_t ErrorHeaderNotFound = 12150;
inline constexpr std::uint32_t ErrorInvalidServerResponse = 12152;
inline constexpr std::uint32_t ErrorRedirectFailed = 12156;
inline constexpr std::uint32_t ErrorSecureChannel = 12157;

/// The number that stands for a failure of libcurl.
std::uint32_t ErrorOf(CURLcode result);

}  // namespace ptzd::internet
