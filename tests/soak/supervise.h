// Runs the program proper in a child process, so that whatever ends it leaves nothing behind.
#pragma once

using Program = int (*)(int argc, char** argv);

// To be called before there is a thread. The child runs `program`, and its TempFolders are below one that is removed in
// the end. SIGINT, SIGQUIT, SIGTERM and SIGHUP are passed on, and all that the child started is waited for. Returns its
// exit status, 128 + signal when one ended it.
int supervise(Program program, int argc, char** argv);
