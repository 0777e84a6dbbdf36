#pragma once

namespace Velmor::Tool {

class Command;

/// One function per verb, each in the file of its name.
void addImport(Command& command);
void addFilter(Command& command);
void addInfo(Command& command);
void addMesh(Command& command);
void addMix(Command& command);
void addRender(Command& command);
void addSample(Command& command);
void addSurface(Command& command);

}  // namespace Velmor::Tool
