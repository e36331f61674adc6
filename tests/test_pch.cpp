// Carries the test programs' precompiled header; it is never run.
int main() { return 0; }
