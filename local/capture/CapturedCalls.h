#pragma once

class CapturedHost;

/// Has the table of OS calls ask `host`, which lives as long as the process: all that records
/// depend on, the clock of a batch included. Nothing can be turned on (acct) any more. Limits of
/// this process, its children and pauses stay its own.
void CaptureOsCalls(CapturedHost& host);
