#pragma once

#include <cstddef>
#include <string>
#include <string_view>
#include <vector>

#include "client/show/RowChoice.h"
#include "client/show/Terminal.h"
#include "json/Json.h"

// The rows of the record CGRP as the tree that their paths make.

/// A control group and those below it.
struct GroupNode {
  std::string path;
  std::string name;  ///< what the path has more than that of the group above
  Json row;          ///< see MakeGroupTree()
  std::vector<GroupNode> children;
};

/// How many levels of groups there are at most; groups further down stand in the last one.
inline constexpr std::size_t kDeepestGroupLevel = 250;

/// The groups without a listed group above them: the root, as a rule. A group whose own parent has
/// no row stands below the nearest group above it that has one. A figure that a row does not tell
/// is the sum of the groups right below it, where figures can be summed. Of each row all bytes of
/// block I/O a second are added as the member "io". Throws ClientError for a row without a path.
[[nodiscard]] std::vector<GroupNode> MakeGroupTree(Json rows);

/// The order of the groups below one, from options of --sort: "cpu", "memory", "io", "processes" or
/// "tasks" stand for labels. By memory if there are none. Throws UsageError.
[[nodiscard]] RowChoice GroupOrder(const std::vector<std::string>& sort, Schema schema);

/// Sorts the groups and those below them; equal ones keep their order, which is that of their paths
/// at first.
void SortGroups(std::vector<GroupNode>& groups, const RowChoice& order);

/// The group of that path; null if there is none.
[[nodiscard]] GroupNode* FindGroup(std::vector<GroupNode>& groups, std::string_view path);

/// Takes away what lies more than `levels` below the groups.
void CutGroups(std::vector<GroupNode>& groups, std::size_t levels);

/// The groups as an array of {"path", "name", ..., "children"}, with the figures under their
/// labels. Takes them out of the tree.
[[nodiscard]] Json GroupsJson(std::vector<GroupNode>& groups);

/// A line for each group, below the one that it lies in and further to the right. On a screen of
/// limited width long names are cut, and a container's gives way to its number, to keep the figures
/// beside them as far as that helps.
[[nodiscard]] std::string GroupsText(const std::vector<GroupNode>& groups, const Screen& screen);
