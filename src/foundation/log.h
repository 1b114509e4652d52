#pragma once

// Diagnostics on standard error, off unless TANDREL_LOG is set in the
// environment (any value but "0"). Meant for people chasing a problem and for
// tests that watch a running program from outside; users never see it.
bool LLogEnabled();
void LLog(const char* format, ...) __attribute__((format(printf, 1, 2)));
