#include "agent/Service.h"

int main(int argc, char** argv) { return RunService(argc, argv); }
