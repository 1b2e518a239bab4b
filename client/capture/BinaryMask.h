#pragma once

#include <string>
#include <string_view>

#include "client/capture/StandIns.h"

// Addresses in what the kernel gives as structures and as columns of hexadecimal digits. What is
// cut or none of these is left as it is.

/// One datagram of netlink: addresses of links, of interfaces and of sockets.
void MaskNetlink(int protocol, std::string& datagram, StandIns& standIns);
/// The `struct ifreq` that an ioctl(2) of this number has filled in.
void MaskInterfaceAnswer(unsigned long request, std::string& answer, StandIns& standIns);
/// A table as /proc/net/tcp, tcp6 or if_inet6: each column of 8 or 32 such digits, with a port
/// behind it or at the beginning of a line. With `isSwapped` each 4 bytes stand in the order of the
/// machine.
[[nodiscard]] std::string MaskHexColumns(std::string_view text, bool isSwapped, StandIns& standIns);
/// The bytes of a text of hexadecimal digits; empty if it is none.
[[nodiscard]] std::string BytesOfHex(std::string_view text);
[[nodiscard]] std::string HexOfBytes(std::string_view bytes);
/// The same with a colon between, as hardware addresses are written.
[[nodiscard]] std::string TextOfPairs(std::string_view bytes);
