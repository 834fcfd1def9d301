// What a proxy asks: who made this new connection?
#pragma once

namespace bench {

/// Measures look-ups of new connections among that many processes of 30 descriptors. Reads cases from standard input,
/// one a line: a name; "tcp" or "udp"; "known" (the same clients all the time) or "new" (a process for each
/// connection); how many clients; how many descriptors each has; "own" or "shared" (control groups); "alone" or
/// "remote" (the question names the other end). Prints lines of NAME/WHAT and microseconds. WHAT is "helper", the
/// processor time of a look-up less that of one that is refused at once; "wall" and "wall99", median and 99th
/// percentile of how long the look-up took; and, taken in turns with those, "floor", the processor time of an exact
/// request to the kernel and two readlink(2), and "ss", "ss-wall", "lsof" and "lsof-wall" of a look-up by these
/// programs.
void measureConnections(const char* helper, int processes);

/// Measures as many round trips of "version" while another client has connections looked up without a pause among 20
/// processes of 15,000 descriptors. Prints lines of a name and microseconds: "median", "p99", "worst".
void measureBeside(const char* helper, int count);

}  // namespace bench
