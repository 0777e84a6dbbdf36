#include "command.h"
#include "verbs/verbs.h"

int main(int argc, char** argv) {
  Velmor::Tool::Command command;
  Velmor::Tool::addInfo(command);
  Velmor::Tool::addMesh(command);
  return command.run(argc, argv);
}
