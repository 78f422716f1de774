// An empty C++ program. compare-tools compares the start of GraphProgram with it.
int main() {}
