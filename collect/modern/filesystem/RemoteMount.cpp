#include "collect/modern/filesystem/RemoteMount.h"

#include <algorithm>
#include <array>

namespace {

// Both in order.
constexpr auto kRemoteTypes = std::to_array<std::string_view>(
    {"afs", "auristorfs", "beegfs", "ceph", "cifs", "coda", "davfs", "fhgfs", "glusterfs", "lustre",
     "ncp", "ncpfs", "nfs", "nfs4", "orangefs", "pvfs2", "smb3", "smbfs"});
static_assert(std::is_sorted(kRemoteTypes.begin(), kRemoteTypes.end()));
/// Behind "fuse.".
constexpr auto kRemotePrograms = std::to_array<std::string_view>(
    {"afpfs",   "blobfuse", "blobfuse2", "ceph",     "ceph-fuse", "curlftpfs", "cvmfs2",  "davfs",
     "davfs2",  "gcsfuse",  "glusterfs", "goofys",   "hdfs",      "httpfs",    "juicefs", "mfs",
     "moosefs", "rclone",   "s3fs",      "smbnetfs", "sshfs",     "weed"});
static_assert(std::is_sorted(kRemotePrograms.begin(), kRemotePrograms.end()));

constexpr std::string_view kFusePrefix = "fuse.";

/// The same without what stands before the last "@".
std::string_view WithoutUser(std::string_view host) {
  const std::size_t at = host.rfind('@');
  return at == std::string_view::npos ? host : host.substr(at + 1);
}

/// Splits "host/path", of which the path has the slash.
RemotePlace SplitAtSlash(std::string_view text) {
  const std::size_t slash = std::min(text.find('/'), text.size());
  return {WithoutUser(text.substr(0, slash)), text.substr(slash)};
}

/// The colon that ends the host. Addresses, and lists of hosts with ports, have colons of their own
/// before it; a path may be relative.
std::size_t ColonOfHost(std::string_view source) {
  const std::size_t bracket = source.find("]:");
  const std::size_t slash = source.find(":/");
  if (bracket < slash) {
    return bracket + 1;
  }
  return slash != std::string_view::npos ? slash : source.find(':');
}

}  // namespace

bool IsRemoteType(std::string_view type) {
  if (type.starts_with(kFusePrefix)) {
    type.remove_prefix(kFusePrefix.size());
    return std::binary_search(kRemotePrograms.begin(), kRemotePrograms.end(), type);
  }
  return std::binary_search(kRemoteTypes.begin(), kRemoteTypes.end(), type);
}

RemotePlace SplitRemoteSource(std::string_view type, std::string_view source) {
  constexpr std::string_view kSlashes = "//";
  constexpr std::string_view kScheme = "://";
  if (source.starts_with(kSlashes)) {
    return SplitAtSlash(source.substr(kSlashes.size()));
  }
  if (const std::size_t scheme = source.find(kScheme); scheme != std::string_view::npos) {
    return SplitAtSlash(source.substr(scheme + kScheme.size()));
  }
  const std::size_t colon = ColonOfHost(source);
  if (colon == std::string_view::npos) {
    return {{}, source};
  }
  const std::string_view host = source.substr(0, colon);
  return {type.starts_with(kFusePrefix) ? WithoutUser(host) : host, source.substr(colon + 1)};
}
