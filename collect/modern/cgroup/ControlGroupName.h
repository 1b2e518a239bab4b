#pragma once

#include <string>
#include <string_view>

/// What the path of a control group tells by the names that service managers, runtimes of
/// containers and orchestrators give.
struct ControlGroupName {
  /// "root"; "container", the group that a runtime makes for one, not those within it; "user
  /// session", a session's scope and a user's manager right below the user's slice; "service",
  /// "slice", "scope" by the end of the name; "group" for any other. Lives for ever.
  std::string_view kind = "group";
  /// Of a container: "docker", "containerd", "cri-o", "podman", "lxc", "nspawn"; empty if its name
  /// does not tell. Lives for ever.
  std::string_view runtime;
  /// Of a container: 12 to 64 hexadecimal digits; empty where the runtime has names instead.
  std::string containerId;
  /// Of a container of such a runtime, the service manager's escapes decoded.
  std::string containerName;
  /// Of a group that is a pod's or lies in it: the pod's uid with its hyphens.
  std::string pod;
};

/// Takes a path from the root of the hierarchy, "/" or "/name/name"; any bytes will do.
[[nodiscard]] ControlGroupName NameControlGroup(std::string_view path);

/// Whether a group deep in the tree is worth a row: a container, or one of the service manager's
/// services, slices and scopes.
[[nodiscard]] bool IsNotableGroup(const ControlGroupName& name);
