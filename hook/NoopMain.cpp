// tidewick-noop: starts and exits, linked like tidewick-hook. The benchmarks
// use it as the floor that no process can go below.
int main() {
    return 0;
}
