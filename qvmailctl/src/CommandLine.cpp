#include "CommandLine.h"

#include "Output.h"
#include "Results.h"

#include <CLI/CLI.hpp>
#include <PostfixVersion.h>

#include <algorithm>
#include <cstring>
#include <map>
#include <numeric>
#include <set>
#include <sstream>

namespace
{

constexpr const char* FirstSteps = R"(First steps:
  qvmailctl init files --servers                     prepares this machine
  qvmailctl domain add example.com postmaster        asks for the password
  echo 'secret' | qvmailctl mailbox add bob@example.com --quota 500M
  qvmailctl alias add info@example.com bob@example.com
  qvmailctl list add staff@example.com bob@example.com ann@example.org
  qvmailctl catchall set example.com postmaster
  qvmailctl domain show example.com
  qvmailctl check

"qvmailctl OBJECT --help" lists the actions, "qvmailctl OBJECT ACTION --help" has examples.
Exit status: 0 done, 64 command line, 65 name or value refused, 67 not there, 69 database or
server not reachable, 70 own fault, 71 unfinished, 73 exists already, 74 could not be written,
75 busy, 77 not root, 78 settings or system not fit, 130 interrupted. See qvmailctl(8).)";

// ---- Options ----

void addCommonOptions(CLI::App& app, Options& options)
{
    app.add_flag("--json", options.json, "Answer with one JSON document");
    app.add_flag("--verbose", options.verbose,
                 "Show the library's progress lines on standard error (password hashes too)");
}

void addChangeOptions(CLI::App& app, Options& options)
{
    constexpr int LongestWait = 86400;
    app.add_flag("--dry-run", options.dryRun, "Check and answer, but change nothing");
    app.add_option("--wait", options.wait,
                   "How long to wait for another change to end (default: 5)")
        ->option_text("SECONDS")
        ->check(CLI::Range(0, LongestWait));
}

void addYes(CLI::App& app, Options& options)
{
    app.add_flag("--yes", options.yes, "Do not ask before deleting");
}

void addOptions(CLI::App& command, unsigned takes, Choice& choice)
{
    Options& options = choice.options;
    if ((takes & QuotaOption) != 0)
        command
            .add_option("--quota", choice.given.quota,
                        "Bytes, or with K, M, G or T; no limit without it")
            ->option_text("SIZE");
    if ((takes & TakeOver) != 0)
        command.add_flag("--take-over", options.takeOver,
                         "Let it have the mail that a former mailbox of that address left");
    if ((takes & IfMissing) != 0)
        command.add_flag("--if-missing", options.ifMissing, "Do nothing if it is there already");
    if ((takes & IfThere) != 0)
        command.add_flag("--if-there", options.ifThere, "Do nothing if it is not there");
    if ((takes & Yes) != 0)
        addYes(command, options);
    if ((takes & Repair) != 0)
        command.add_flag("--repair", choice.given.repair,
                         "Mend what can be mended without losing anything");
    if ((takes & Servers) != 0) {
        command.add_flag("--servers", choice.given.servers,
                         "Set up Postfix and Dovecot too; their former settings are kept beside");
        command
            .add_option("--config", choice.given.config,
                        "Where the shipped settings are (default: " QVMAILCTL_CONFIG ")")
            ->option_text("DIR");
    }
    if ((takes & ChangeOptions) != 0)
        addChangeOptions(command, options);
    addCommonOptions(command, options);
}

// ---- Commands ----

void addArgument(CLI::App& command, std::string name, std::size_t place, Given& given)
{
    const bool isOptional = name.front() == '[';
    if (isOptional)
        name = name.substr(1, name.size() - 2);
    CLI::Option* option = nullptr;
    if (name.back() == '.')
        option =
            command.add_option(name.substr(0, name.find('.')), given.members)->option_text("...");
    else
        option = command.add_option(name, place == 0 ? given.name : given.value)->option_text(" ");
    option->required(!isOptional);
}

void addAction(CLI::App& parent, const char* name, const Action& action, Choice& choice)
{
    CLI::App* const command = parent.add_subcommand(name, action.help);
    for (std::size_t i = 0; i < action.arguments.size(); ++i)
        addArgument(*command, action.arguments[i], i, choice.given);
    addOptions(*command, action.takes, choice);
    command->footer(std::string("Examples:\n") + action.examples);
    command->callback([&choice, &action] { choice.action = &action; });
}

void addObject(CLI::App& app, const Object& object, Choice& choice)
{
    if (*object.actions.front().name == '\0')
        return addAction(app, object.name, object.actions.front(), choice);
    CLI::App* const group = app.add_subcommand(object.name, object.help)->require_subcommand(1);
    group->fallthrough();
    group->footer("\"qvmailctl " + std::string(object.name) + " ACTION --help\" has examples.");
    for (const Action& action : object.actions)
        addAction(*group, action.name, action, choice);
}

// ---- Unknown words ----

// How many letters must be added, left out or replaced to turn one word into the other.
std::size_t distance(const std::string& from, const std::string& to)
{
    std::vector<std::size_t> row(to.size() + 1);
    std::iota(row.begin(), row.end(), 0);
    for (std::size_t i = 0; i < from.size(); ++i) {
        std::size_t diagonal = std::exchange(row[0], i + 1);
        for (std::size_t j = 0; j < to.size(); ++j) {
            const std::size_t replaced = diagonal + (from[i] == to[j] ? 0 : 1);
            diagonal = row[j + 1];
            row[j + 1] = std::min({replaced, diagonal + 1, row[j] + 1});
        }
    }
    return row.back();
}

// Words that other programs use, and the word here.
const std::map<std::string, std::string> OtherWords = {
    {"remove", "delete"}, {"rm", "delete"},       {"del", "delete"},      {"create", "add"},
    {"new", "add"},       {"ls", "list"},         {"info", "show"},       {"get", "show"},
    {"change", "set"},    {"password", "passwd"}, {"user", "mailbox"},    {"account", "mailbox"},
    {"email", "mailbox"}, {"forward", "alias"},   {"forwarder", "alias"}, {"find", "search"},
};

void requireKnown(const std::string& word, const std::string& before,
                  const std::vector<std::string>& known)
{
    if (std::find(known.begin(), known.end(), word) != known.end())
        return;
    const auto other = OtherWords.find(word);
    std::string nearest;
    if (other != OtherWords.end() &&
        std::find(known.begin(), known.end(), other->second) != known.end())
        nearest = other->second;
    else
        nearest = *std::min_element(known.begin(), known.end(), [&](const auto& a, const auto& b) {
            return distance(word, a) < distance(word, b);
        });
    const bool isNear = other != OtherWords.end() || distance(word, nearest) <= nearest.size() / 2;
    stop(Status::Usage, "there is no command " + inQuotes(before + word) + "; " +
                            (isNear ? "the nearest is \"" + before + nearest + "\", " : "") +
                            "\"qvmailctl " + before + "--help\" lists all");
}

// CLI11 names the word that it did not expect, but not the one that may have been meant.
void requireKnownWords(const std::vector<std::string>& words, const std::vector<Object>& objects)
{
    if (words.empty())
        return;
    std::vector<std::string> known;
    known.reserve(objects.size());
    for (const Object& object : objects)
        known.emplace_back(object.name);
    requireKnown(words[0], "", known);

    const auto object = std::find_if(objects.begin(), objects.end(), [&](const Object& candidate) {
        return words[0] == candidate.name;
    });
    if (words.size() < 2 || *object->actions.front().name == '\0')
        return;
    known.clear();
    for (const Action& action : object->actions)
        known.emplace_back(action.name);
    requireKnown(words[1], words[0] + " ", known);
}

// The words that are neither options nor their values.
std::vector<std::string> plainWords(int argc, char** argv)
{
    static const std::set<std::string> takeValues = {"--wait", "--quota", "--config"};
    std::vector<std::string> words;
    for (int i = 1; i < argc; ++i)
        if (takeValues.count(argv[i]) > 0)
            ++i; // its value
        else if (*argv[i] != '-' || strcmp(argv[i], "-") == 0)
            words.emplace_back(argv[i]);
    return words;
}

bool isGiven(int argc, char** argv, const char* option)
{
    return std::any_of(argv, argv + argc,
                       [&](const char* word) { return strcmp(word, option) == 0; });
}

} // namespace

void readCommandLine(int argc, char** argv, const std::vector<Object>& objects, Choice& choice)
{
    choice.options.json = isGiven(argc, argv, "--json"); // known before CLI11 fails
    const std::vector<std::string> words = plainWords(argc, argv);
    for (const std::string& word : words)
        choice.words += (choice.words.empty() ? "" : " ") + word;

    CLI::App app("Administers the virtual mail hosting of a Postfix server.", "qvmailctl");
    app.set_version_flag("--version", "qvmailctl " POSTFIXMANAGER_VERSION);
    addCommonOptions(app, choice.options);
    addChangeOptions(app, choice.options); // scripts also put them before the object
    addYes(app, choice.options);
    app.footer(FirstSteps);
    app.require_subcommand(1);
    for (const Object& object : objects)
        addObject(app, object, choice);

    try {
        requireKnownWords(words, objects);
        app.parse(argc, argv);
    } catch (const CLI::Success& asked) { // --help, --version
        std::ostringstream text;
        app.exit(asked, text, text);
        choice.text = text.str();
    } catch (const CLI::ParseError& error) {
        stop(Status::Usage, std::string(error.what()) + "; \"qvmailctl " +
                                (words.empty() ? "" : words[0] + " ") + "--help\" tells more");
    }
}
