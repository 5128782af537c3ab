// The process entry of velbootstrapctl.

#include "CTLProgram.h"
#include "CTLTerminal.h"

int main(int argc, char** argv) {
    CTLTerminal terminal;
    CTLProgram program(terminal);
    return program.run(argc, argv);
}
