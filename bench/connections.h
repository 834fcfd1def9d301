// Measures the look-ups of a proxy: which process opened a new connection?
#pragma once

namespace bench {

/// Measures look-ups of new connections among the given number of processes with 30 descriptors each.
///
/// Reads cases from standard input, one per line, with these words:
/// - a name;
/// - "tcp" or "udp";
/// - "known" (always the same clients) or "new" (a new process for each connection);
/// - the number of clients;
/// - the number of descriptors of each client;
/// - "own" or "shared" control groups;
/// - "alone" or "remote" (the question includes the remote end).
///
/// Prints lines with NAME/WHAT and microseconds, measured alternately. WHAT is:
/// - "helper": the processor time of a look-up minus that of a request that is refused at once;
/// - "wall" and "wall99": median and 99th percentile of the elapsed time;
/// - "floor": the processor time of one exact request to the kernel and two readlink(2);
/// - "ss" and "lsof": the processor times of these programs; "ss-wall" and "lsof-wall": their elapsed times.
void measureConnections(const char* helper, int processes);

/// Measures the given number of round trips of "version" while another client looks up connections without pause among
/// 20 processes with 15,000 descriptors each. Prints lines with a name and a number: "median", "p99" and "worst" in
/// microseconds, and "lookups", the number of look-ups meanwhile.
void measureBeside(const char* helper, int count);

}  // namespace bench
