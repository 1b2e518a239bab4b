#pragma once

// What a child process does between fork(2) and exec(2), or its end. All of it may be called there.

/// Gives the signals that the agent handles or ignores their defaults back, and blocks none.
void ResetSignals();

/// Closes every descriptor but `kept`.
void CloseOthers(int kept);

/// Leaves a program that the child becomes the three standard descriptors and `kept`.
void KeepAcrossExec(int kept);
