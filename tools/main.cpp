#include "command.h"
#include "verbs/verbs.h"

int main(int argc, char** argv) {
  Velmor::Tool::Command command;
  Velmor::Tool::addInfo(command);
  Velmor::Tool::addImport(command);
  Velmor::Tool::addMesh(command);
  Velmor::Tool::addSample(command);
  Velmor::Tool::addRender(command);
  Velmor::Tool::addSurface(command);
  Velmor::Tool::addFilter(command);
  Velmor::Tool::addMix(command);
  return command.run(argc, argv);
}
