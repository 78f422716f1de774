// The least that a C++ program can do; what compare-tools takes GraphProgram's start against.
int main() {}
