#pragma once

// The first step of every Tandrel process: names the main thread, takes the
// user's locale for texts (numbers stay in the C form so files and settings
// read the same everywhere) and raises the limit of open files, since a large
// project keeps many audio files open. False ends the process.
bool LUnixAppInitCommon(int argc, char** argv);
