// kiv: packs, lists and unpacks archives, compresses files and checks them, the way a content
// pipeline uses them. Every command is a row of the table below.
#include "Exception.h"
#include "Tool.h"

#include <cstdio>
#include <cstring>

namespace
{
const Tool::Command * const commands[] = {
    &Tool::packCommand,   &Tool::listCommand,     &Tool::extractCommand,    &Tool::addCommand,
    &Tool::removeCommand, &Tool::compressCommand, &Tool::decompressCommand, &Tool::crcCommand,
    &Tool::imgCommand,    &Tool::crashCommand,    &Tool::cfgCommand,
};

enum ExitCode
{
    EXIT_OK = 0,
    EXIT_FAILED = 1,
    EXIT_USAGE = 2
};

const Tool::Command * Find(const char * name)
{
    for (const Tool::Command * command : commands)
        if (strcmp(command->name, name) == 0)
            return command;
    return nullptr;
}

void ToolHelp(FILE * out)
{
    fprintf(out, "usage: kiv COMMAND [ARGUMENTS]\n"
                 "       kiv COMMAND --help\n\ncommands:\n");
    for (const Tool::Command * command : commands)
        fprintf(out, "  %-11s %s\n", command->name, command->summary);
}

void CommandHelp(FILE * out, const Tool::Command & command)
{
    fprintf(out, "usage: kiv %s %s\n\n%s\n", command.name, command.usage, command.details);
}

bool Takes(const Tool::Command & command, const std::string & option)
{
    const std::string options = std::string(" ") + command.options + " ";
    return options.find(" " + option + " ") != std::string::npos;
}

int Usage(const Tool::Command & command, const char * problem, const std::string & what)
{
    fprintf(stderr, "kiv %s: %s%s\n", command.name, problem, what.c_str());
    fprintf(stderr, "usage: kiv %s %s\n", command.name, command.usage);
    return EXIT_USAGE;
}

int Run(const Tool::Command & command, int count, char ** words)
{
    Tool::Arguments arguments;
    bool optionsEnd = false;
    for (int i = 0; i < count; ++i)
    {
        const std::string word = words[i];
        if (optionsEnd || word.size() < 2 || word.compare(0, 2, "--") != 0)
            arguments.operands.push_back(word);
        else if (word == "--")
            optionsEnd = true;
        else if (word == "--help")
            return CommandHelp(stdout, command), EXIT_OK;
        else if (!Takes(command, word))
            return Usage(command, "unknown option ", word);
        else
            arguments.options.push_back(word);
    }
    const size_t given = arguments.operands.size();
    if (given < command.minOperands || given > command.maxOperands)
        return Usage(command, given < command.minOperands ? "missing operands" : "too many operands", "");
    try
    {
        return command.run(arguments);
    }
    catch (const Tool::Failure & failure)
    {
        Tool::Report(command, failure);
    }
    catch (const Kiv::Exception & exception)
    {
        fprintf(stderr, "kiv %s: %s\n", command.name, exception.Reason());
    }
    return EXIT_FAILED;
}
} // namespace

int main(int argc, char ** argv)
{
    if (argc < 2)
    {
        ToolHelp(stderr);
        return EXIT_USAGE;
    }
    const char * name = argv[1];
    if (strcmp(name, "--help") == 0 || strcmp(name, "-h") == 0 || strcmp(name, "help") == 0)
    {
        const Tool::Command * command = argc > 2 ? Find(argv[2]) : nullptr;
        command ? CommandHelp(stdout, *command) : ToolHelp(stdout);
        return EXIT_OK;
    }
    const Tool::Command * command = Find(name);
    if (command == nullptr)
    {
        fprintf(stderr, "kiv: unknown command '%s'\n", name);
        ToolHelp(stderr);
        return EXIT_USAGE;
    }
    return Run(*command, argc - 2, argv + 2);
}
