#pragma once

class CMBIniFile;

/// Puts the host profile in force: the one that the environment variable QMT_HOST_PROFILE names,
/// else that of the key "Profile" in section "Host", else `classic`; and publishes it, with the
/// layouts that go with it. Another word than a profile's name gives one message, which names the
/// place and the word, and `classic`.
void ChooseHostProfile(CMBIniFile& ini);
