#include "CommandLine.h"

#include <CLI/CLI.hpp>
#include <algorithm>
#include <memory>

#include <ptzd/Version.h>

#include "Cameras.h"
#include "Check.h"
#include "Connection.h"
#include "Discover.h"
#include "DriveCommand.h"
#include "Operations.h"
#include "Probe.h"
#include "Session.h"
#include "Tour.h"
#include "Words.h"
#include "common/Nearest.h"
#include "manual/ManualPage.h"

namespace ptzctl {

namespace {

constexpr char Footer[] =
    "Examples:\n"
    "  ptzctl drivers\n"
    "  ptzctl options Axis\n"
    "  ptzctl --driver Axis --address 192.168.0.90 info\n"
    "  ptzctl --driver Axis --address 192.168.0.90:8080 --user operator -o Port=2 move up-left 5\n"
    "  ptzctl @gate move-to 10 -20\n"
    "  ptzctl --driver Axis --address 192.168.0.90 move-to 10 -20 1.5\n"
    "  ptzctl --driver Axis --address 192.168.0.90 continuous 10 0 --for 2s\n"
    "  ptzctl --driver Axis --address 192.168.0.90 run \"preset goto 3\" \"wait 2s\" \"zoom in\"\n"
    "  ptzctl --driver Axis --address 192.168.0.90 shell\n"
    "  ptzctl --driver Axis --address 192.168.0.90 drive\n"
    "  ptzctl --driver Axis --address 192.168.0.90 --record axis.jsonl run \"move up 5\" \"zoom in\"\n"
    "  ptzctl --driver Pelco --line /dev/ttyUSB0 -o Port=2 move left 10\n"
    "\n"
    "Every call connects anew. What a driver only estimates (the position of a head that cannot tell it) is\n"
    "lost in between: use run or shell for several operations on one connection.\n"
    "\n"
    "Exit codes:\n"
    "  0    done\n"
    "  1    refused: the camera refused or did not answer, or it or its driver cannot do that; also where "
    "what\n"
    "       ptzctl has to say cannot be written\n"
    "  2    usage: the command line or an option is wrong, or a number is beyond what the make takes\n"
    "  3    cannot connect; number and text are told, such as 17001 Unable to connect to the device\n"
    "  4    the driver raised an error; number and text are told\n"
    "  5    with --wait: sent, but the camera is not at rest where it was sent, or cannot tell\n"
    "  128+ the number of the signal that ended ptzctl (130 for Ctrl-C), which stopped the camera first\n";

constexpr char ForHelp[] =
    "Stop again after this time (2s, 500ms, 1m; plain numbers are seconds). Without it the camera moves "
    "until "
    "ptzctl ends, by Ctrl-C for example; in run and shell until another operation stops or moves it, or the "
    "end";
constexpr char LeaveHelp[] = "Let it move on when ptzctl has ended, until: ptzctl stop";
constexpr char WaitHelp[] =
    "Wait until the camera is at rest, at most this long (60s when not given), and tell whether it arrived; "
    "stands behind all else";
constexpr char CameraOption[] = "--camera";
constexpr char Device2Help[] = "Call the member of PTZDevice2 instead of the one of PTZDevice";

/// Names of presets begin as no number does.
bool IsName(const std::string& word) { return !word.empty() && word.find_first_of("0123456789+-.") != 0; }

using Perform = Outcome (*)(Camera&, const Arguments&);

/// Declares the operations to the parser. The words of the one that is chosen go to `Words_`.
class OperationParser {
 public:
  explicit OperationParser(CLI::App& app) : App_(app) { Declare(); }

  /// What an earlier line said.
  void Forget() {
    Words_ = {};
    Perform_ = nullptr;
    Name_.clear();
  }

  /// Absent where no operation was chosen.
  Operation Chosen() const {
    if (Perform_ == nullptr) return {};
    return {Name_, [perform = Perform_, words = Words_](Camera& camera) { return perform(camera, words); },
            Perform_ == &Connect, Perform_ == &PresetSave, Words_.PresetName};
  }

 private:
  CLI::App* Add(CLI::App& parent, const char* name, const char* help, Perform perform) {
    auto* command = parent.add_subcommand(name, help);
    const auto whole = (&parent == &App_ ? "" : parent.get_name() + " ") + name;
    command->callback([this, whole, perform] {
      Perform_ = perform;
      Name_ = whole;
    });
    return command;
  }
  CLI::App* Add(const char* name, const char* help, Perform perform) {
    return Add(App_, name, help, perform);
  }

  /// A word that `read` turns into a value.
  template <typename Read, typename Target>
  static CLI::Option* Take(CLI::App* command, const std::string& name, Read read, Target& target,
                           const char* help) {
    return command
        ->add_option_function<std::string>(
            name, [name, read, &target](const std::string& word) { target = read(name, word); }, help)
        ->type_name("");
  }
  static void Angles(CLI::App* command, Arguments& words) {
    Take(command, "pan", ReadNumber, words.Pan, "Degrees, positive to the right")->required();
    Take(command, "tilt", ReadNumber, words.Tilt, "Degrees, positive upwards")->required();
  }
  /// A motion that goes on.
  static void Continuing(CLI::App* command, Arguments& words) {
    auto* time = Take(command, "--for", ReadDuration, words.Duration, ForHelp)->type_name("TIME");
    command->add_flag("--leave", words.Leave, LeaveHelp)->excludes(time);
  }
  /// A motion that ends by itself.
  static CLI::App* Ending(CLI::App* command, Arguments& words) {
    Take(command, "--wait", ReadDuration, words.Wait, WaitHelp)
        ->expected(0, 1)
        ->default_str("60s")
        ->type_name("[TIME]");
    return command;
  }
  void Device2(CLI::App* command) { command->add_flag("--device2", Words_.Device2, Device2Help); }

  void Declare();

  CLI::App& App_;
  Arguments Words_;
  Perform Perform_ = nullptr;
  std::string Name_;
};

void OperationParser::Declare() {
  auto& words = Words_;
  Add("info", "What the camera is and can do", Info)->alias("capabilities");
  Add("position", "Where the camera is", ShowPosition)->alias("where");
  Take(Add("watch", "Show the position whenever it is another, until Ctrl-C", Watch), "time", ReadDuration,
       words.Duration, "2s, 500ms, 1m; plain numbers are seconds; without end when not given");
  Add("connected", "Whether the driver is connected", ShowConnected);
  Device2(Add("connect", "Connect (only this, or again)", Connect));
  Device2(Add("disconnect", "Let go of the camera", Disconnect));

  auto* move = Add("move", "Step in a direction, for example: move up-left 5", Move);
  Take(move, "direction", ReadDirection, words.Direction, "")->required()->type_name(DirectionChoices());
  Take(move, "angle", ReadNumber, words.Angle, "Degrees; 5 when not given");
  Device2(Ending(move, words));

  auto* moveBy = Add("move-by", "Step by two angles, for example: move-by -10 2.5", MoveBy);
  Angles(moveBy, words);
  Device2(Ending(moveBy, words));

  auto* moveTo =
      Add("move-to", "Go to a position, for example: move-to 10 -20 or move-to 10 -20 1.5", MoveTo);
  Angles(moveTo, words);
  Take(moveTo, "zoom", ReadNumber, words.Zoom,
       "In the driver's scale, 0 being the widest; kept when not given");
  Ending(moveTo, words);

  auto* zoom = Add("zoom", "Zoom by a step, for example: zoom in", Zoom);
  Take(zoom, "direction", ReadZoom, words.ZoomDirection, "")->required()->type_name(ZoomChoices());
  Take(zoom, "amount", ReadNumber, words.ZoomAmount, "In the driver's scale; its usual step when not given");
  Device2(Ending(zoom, words));

  auto* zoomTo = Add("zoom-to", "Zoom to a position, for example: zoom-to 2.5", ZoomTo);
  Take(zoomTo, "zoom", ReadNumber, words.Amount, "In the driver's scale, 0 being the widest")->required();
  Ending(zoomTo, words);

  auto* iris = Add("iris", "Control the iris", Iris);
  Take(iris, "level", ReadIris, words.IrisLevel, "")->required()->type_name(IrisChoices());
  auto* focus = Add("focus", "Control the focus", Focus);
  Take(focus, "level", ReadFocus, words.FocusLevel, "")->required()->type_name(FocusChoices());

  auto* preset = App_.add_subcommand("preset", "Numbered and named presets");
  preset->require_subcommand(1);
  const auto numbered = [&](CLI::App* command) {
    command
        ->add_option_function<std::string>(
            "number",
            [&words](const std::string& word) {
              if (IsName(word))
                words.PresetName = word;
              else
                words.Preset = ReadWholeNumber("number", word);
            },
            "Counted from 0, or a name that cameras.toml has for it")
        ->required()
        ->type_name("PRESET");
    return command;
  };
  Add(*preset, "count", "How many numbered presets there are", PresetCount);
  Ending(numbered(Add(*preset, "goto", "Go to a numbered preset, for example: preset goto 3", PresetGoto)),
         words);
  numbered(Add(*preset, "save", "Save where the camera is as a numbered preset", PresetSave));
  Add(*preset, "list", "The presets that the camera knows by name", PresetList);
  Ending(Add(*preset, "goto-named", "Go to a preset of that list", PresetGotoNamed), words)
      ->add_option("id", words.ID, "Its id")
      ->required()
      ->type_name("");

  Ending(Add("home", "Go to the home position", Home), words);

  auto* setPosition =
      Add("set-position", "Tell the driver where the camera is, without moving it", SetPosition);
  Angles(setPosition, words);

  auto* continuous = Add("continuous", "Move at a speed, for example: continuous 10 0 --for 2s", Continuous);
  Take(continuous, "pan", ReadNumber, words.Pan, "Speed in the driver's scale, positive to the right")
      ->required();
  Take(continuous, "tilt", ReadNumber, words.Tilt, "Speed in the driver's scale, positive upwards")
      ->required();
  Take(continuous, "--zoom", ReadNumber, words.Zoom, "Zoom as well, at this speed; positive is in")
      ->type_name("SPEED");
  Continuing(continuous, words);

  auto* continuousZoom =
      Add("continuous-zoom", "Zoom at a speed, for example: continuous-zoom -3 --for 500ms", ContinuousZoom);
  Take(continuousZoom, "amount", ReadNumber, words.Amount, "Speed in the driver's scale; positive is in")
      ->required();
  Continuing(continuousZoom, words);

  Add("stop", "Stop the camera, whoever has set it in motion", Stop);

  auto* moveInImage = Add("move-in-image", "Centre on a point of the picture", MoveInImage);
  Take(moveInImage, "x", ReadWholeNumber, words.X, "Pixels from the left")->required();
  Take(moveInImage, "y", ReadWholeNumber, words.Y, "Pixels from the top")->required();
  Take(moveInImage, "width", ReadWholeNumber, words.Width, "Of the picture, pixels");
  Take(moveInImage, "height", ReadWholeNumber, words.Height, "Of the picture, pixels");
  Ending(moveInImage, words);

  auto* wait = Add("wait", "Let time pass between two operations of run or shell", Wait);
  Take(wait, "time", ReadDuration, words.Duration, "2s, 500ms, 1m; plain numbers are seconds")->required();
}

/// Options that begin with a digit there are none of, so "-20" is a number to the parser; "-.5" is not.
void SpellOutNumbers(std::vector<std::string>& words) {
  for (auto& word : words)
    if (word.size() > 2 && word.starts_with("-.") && word[2] >= '0' && word[2] <= '9') word.insert(1, "0");
}

/// "@gate" before the command is short for a camera of that name.
void SpellOutCamera(const CLI::App& app, std::vector<std::string>& words) {
  const auto isCommand = [&](const std::string& word) {
    return !app.get_subcommands([&](const CLI::App* command) { return command->check_name(word); }).empty();
  };
  const auto command = std::ranges::find_if(words, isCommand);
  const auto name =
      std::find_if(words.begin(), command, [](const auto& word) { return word.starts_with('@'); });
  if (name == command) return;
  if (name->size() == 1) throw UsageError("@: the name of a camera is missing");
  *name = CameraOption + ("=" + name->substr(1));
}

/// The command that was being read when the parser stopped.
const CLI::App& Innermost(const CLI::App& app) {
  const auto chosen = app.get_subcommands();
  return chosen.empty() ? app : Innermost(*chosen.front());
}

std::vector<std::string> CommandsOf(const CLI::App& app) {
  std::vector<std::string> names;
  for (const auto* command :
       app.get_subcommands([](const CLI::App* one) { return !one->get_group().empty(); }))
    names.push_back(command->get_name());
  return names;
}

/// Raises the problem with the name of the command that it is about.
[[noreturn]] void Explain(const CLI::App& app, const std::string& problem) {
  const auto& command = Innermost(app);
  throw UsageError((&command == &app ? "" : command.get_name() + ": ") + problem);
}

/// The parser does not say which command it did not know or which there are.
[[noreturn]] void ExplainMissingCommand(const CLI::App& app) {
  const auto commands = CommandsOf(Innermost(app));
  const auto rest = app.remaining(true);
  if (rest.empty()) Explain(app, "a command is missing; one of " + CLI::detail::join(commands, ", "));
  Explain(app, "\"" + Printable(rest.front()) + "\" is none of " + CLI::detail::join(commands, ", ") +
                   ptzd::DoYouMean(rest.front(), commands));
}

void Parse(CLI::App& app, std::vector<std::string> words) {
  SpellOutNumbers(words);
  std::ranges::reverse(words);  // as the parser wants them
  try {
    app.parse(std::move(words));
  } catch (const CLI::CallForHelp&) {
    throw HelpRequest(app.help());
  } catch (const CLI::CallForVersion& version) {
    throw HelpRequest(std::string(version.what()) + '\n');
  } catch (const CLI::ParseError& error) {
    const auto kind = static_cast<CLI::ExitCodes>(error.get_exit_code());
    const bool incomplete = kind == CLI::ExitCodes::RequiredError || kind == CLI::ExitCodes::ExtrasError;
    if (incomplete && !CommandsOf(Innermost(app)).empty()) ExplainMissingCommand(app);
    Explain(app, error.what());
  } catch (const UsageError& error) {
    Explain(app, error.what());
  }
}

int ShowDrivers(const Invocation&, Report& report) { return ShowOnce(report, ListDrivers()); }

int ShowOptions(const Invocation& invocation, Report& report) {
  return ShowOnce(report, ListOptions(DriverOf(invocation)));
}

void DeclareCommonOptions(CLI::App& app, Invocation& invocation) {
  app.add_option(CameraOption, invocation.Camera,
                 "A camera that cameras.toml tells of (see ptzctl cameras); before the command also as @NAME")
      ->type_name("CAMERA")
      ->take_last();
  app.add_option("--cameras", invocation.CameraFile, "That file, instead of the user's and the machine's")
      ->envname("PTZD_CAMERAS")
      ->type_name("FILE")
      ->take_last();
  app.add_option("--driver", invocation.Driver,
                 "Driver of the camera's make: Axis or QVPTZ.Axis, in any case")
      ->type_name("DRIVER")
      ->take_last();
  app.add_option("--address", invocation.Address,
                 "The camera: HOST, HOST:PORT or USER:PASSWORD@HOST:PORT; short for -o Address=...")
      ->type_name("ADDRESS")
      ->take_last();
  app.add_option("--user", invocation.User,
                 "Who logs in; the password comes from the environment's PTZD_PASSWORD, or is asked for")
      ->type_name("NAME")
      ->take_last();
  app.add_flag("--ask-password", invocation.AskPassword, "Ask for the password, whatever is known of it");
  app.add_option("--line", invocation.Line,
                 "The serial line of a camera on one: a device like /dev/ttyUSB0, or a port number")
      ->type_name("DEVICE")
      ->take_last();
  app.add_option("-o,--option", invocation.Options,
                 "A connection option Key=Value; may be given several times (see ptzctl options DRIVER)")
      ->allow_extra_args(false)
      ->type_name("KEY=VALUE");
  app.add_flag("--json", invocation.JSON, "Tell everything as JSON, one object per line");
  app.add_flag("--trace", invocation.Trace,
               "Print every exchange with the camera, and the library's log, on the standard error stream, "
               "passwords masked");
  app.add_option("--record", invocation.Record,
                 "Record every exchange with the camera into this new file, passwords masked; ptzsim replay "
                 "plays it as a camera")
      ->type_name("FILE")
      ->take_last();
  app.add_option_function<std::string>(
         "--stop-time",
         [&](const std::string& word) { invocation.StopTime = ReadDuration("--stop-time", word); },
         "How long it is tried to stop a camera that does not take it; 10s when not given")
      ->type_name("TIME");
}

void DeclareLists(CLI::App& app, Invocation& invocation) {
  app.add_subcommand("drivers", "The drivers there are")->callback([&] { invocation.Perform = ShowDrivers; });
  auto* options = app.add_subcommand("options", "The connection options of a driver");
  options->add_option("driver", invocation.Driver, "Axis or QVPTZ.Axis")->type_name("DRIVER");
  options->callback([&] { invocation.Perform = ShowOptions; });
}

/// The commands for cameras by name, which may also stand there as "@gate".
void DeclareCameras(CLI::App& app, Invocation& invocation) {
  app.add_subcommand("cameras", "The cameras that there are by name")->callback([&invocation] {
    invocation.Perform = ShowCameras;
  });
  const auto named = [&](const char* name, const char* help) {
    auto* command = app.add_subcommand(name, help);
    command
        ->add_option_function<std::string>(
            "NAME",
            [&invocation](const std::string& word) {
              invocation.Camera = word.substr(word.starts_with('@') ? 1 : 0);
            },
            "The camera's name")
        ->required()
        ->type_name("");
    return command;
  };
  auto* add =
      named("add", "Give a camera a name: add gate --driver Axis --address 192.168.0.90 --user operator");
  const auto details = std::make_shared<CameraToAdd>();
  auto* file =
      add->add_option("--password-file", details->PasswordFile, "A file that only its owner may read");
  auto* variable =
      add->add_option("--password-env", details->PasswordVariable, "A variable of the environment");
  auto* keyring =
      add->add_flag("--keyring", details->InKeyring, "Ask for the password and keep it in the keyring");
  file->type_name("FILE")->excludes(variable)->excludes(keyring);
  variable->type_name("NAME")->excludes(keyring);
  add->add_flag("--replace", details->Replaces, "Take the place of a camera of that name");
  add->callback([&invocation, details] {
    invocation.Perform = [details](const Invocation& parsed, Report& report) {
      return AddCamera(parsed, *details, report);
    };
  });
  auto* remove = named("remove", "Forget the name of a camera");
  remove->get_option("NAME")->type_name("CAMERA");
  remove->callback([&invocation] { invocation.Perform = RemoveCamera; });
}

/// The commands that find out which camera is where.
void DeclareSearch(CLI::App& app, Invocation& invocation) {
  auto* probe = app.add_subcommand(
      "probe", "Which make answers at an address; moves and changes nothing, and connects no driver");
  probe->add_option("ADDRESS", invocation.Address, "HOST, HOST:PORT or USER:PASSWORD@HOST:PORT")
      ->type_name("");
  probe->callback([&] { invocation.Perform = RunProbe; });

  auto* discover = app.add_subcommand(
      "discover",
      "What announces itself on the network by WS-Discovery and UPnP, and which drivers it names");
  discover
      ->add_option("--interface", invocation.Interface,
                   "Name or address of the network interface; all that are up when not given")
      ->type_name("NAME");
  discover->add_option("--ports", invocation.DiscoveryPorts, "The ports of both; 3702 1900 when not given");
  discover->callback([&] { invocation.Perform = RunDiscover; });
  for (auto* command : {probe, discover})
    command
        ->add_option_function<std::string>(
            "--time", [&](const std::string& word) { invocation.Time = ReadDuration("--time", word); },
            command == probe ? "For all of it; 10s when not given" : "For all of it; 5s when not given")
        ->type_name("TIME");
}

void DeclareCheck(CLI::App& app, Invocation& invocation) {
  auto* check = app.add_subcommand(
      "check",
      "Examine a camera and its driver, moving it a little and putting it back where that is allowed");
  check->add_flag("--move", invocation.Moves, "Move the camera; a terminal is asked when not given");
  check
      ->add_option_function<std::string>(
          "--preset",
          [&](const std::string& word) {
            invocation.Preset = ReadWholeNumber("--preset", word);
            if (*invocation.Preset < 0) throw UsageError("--preset: they are counted from 0");
          },
          "Overwrite this preset, to find it again and to put the camera back by it")
      ->type_name("NUMBER");
  check->add_option("--html", invocation.Page, "Write the report to this file, as a page of its own")
      ->type_name("FILE");
#ifdef _WIN32
  check->add_flag("--com", invocation.ByCOM,
                  "Have the driver from COM, by its ProgID, also where ptzctl has it itself");
#endif
  check->callback([&] { invocation.Perform = RunCheck; });
}

std::int32_t ReadRounds(const std::string& word) {
  const auto rounds = ReadWholeNumber("--rounds", word);
  if (rounds < 0) ptzd::Refuse("--rounds", word, "is less than 0");
  return rounds;
}

int PrintCompletionScript(const Invocation& invocation, Report& report);
int PrintCompletion(const Invocation& invocation, Report& report);

/// The commands that do more than one operation.
void DeclareRuns(CLI::App& app, Invocation& invocation) {
  auto* run =
      app.add_subcommand("run", "Several operations on one connection; stops at the first that fails");
  run->add_option("operations", invocation.Lines,
                  "Each in quotes: \"move up 5\"; lines of the standard input when not given")
      ->type_name("");
  run->add_flag("--keep-going", invocation.KeepGoing, "Do the others too when one fails");
  run->callback([&] { invocation.Perform = RunLines; });
  app.add_subcommand("shell", "Operations from the standard input, one per line; goes on when one fails")
      ->callback([&] { invocation.Perform = RunShell; });

  auto* tour = app.add_subcommand(
      "tour", "Send the camera round the stops of a file, again and again, for example: tour night.toml");
  tour->add_option("file", invocation.Word, "The tour")->required()->type_name("FILE");
  tour->add_option_function<std::string>(
          "--rounds", [&](const std::string& word) { invocation.Rounds = ReadRounds(word); },
          "How often, instead of what the file says; 0: until Ctrl-C")
      ->type_name("NUMBER");
  tour->add_flag("--keep-going", invocation.KeepGoing,
                 "Go on to the next stop, and connect again, when one fails");
  tour->callback([&] { invocation.Perform = RunTour; });

  auto* drive = app.add_subcommand("drive", "Drive the camera by keys and gamepad, on the whole screen");
  drive
      ->add_option("--gamepad", invocation.Gamepad,
                   "Its device, such as /dev/input/event5, or none; the first that is found when not given")
      ->type_name("DEVICE");
  drive->callback([&] { invocation.Perform = RunDrive; });
}

/// The commands for the shell, the build and packagers.
void DeclareTexts(CLI::App& app, Invocation& invocation) {
  auto* completion = app.add_subcommand(
      "completion",
      "A script for a shell that completes commands, for example: source <(ptzctl completion bash)");
  completion->add_option("shell", invocation.Word, "Which")
      ->required()
      ->type_name("bash|zsh")
      ->transform(CLI::IsMember({"bash", "zsh"}).description(""));
  completion->callback([&] { invocation.Perform = PrintCompletionScript; });
  auto* complete = app.add_subcommand("complete", "")->group("");  // which the script calls
  complete->add_option("line", invocation.Word)->required();
  complete->callback([&] { invocation.Perform = PrintCompletion; });
  app.add_subcommand("man", "The manual page, in roff")
      ->group("")  // for the build and for packagers
      ->callback([&] { throw HelpRequest(manual::Page(app, PTZD_VERSION, "ptzsim(1)")); });
}

/// The whole command line, declared once: for reading it, for help and for completion.
class CommandTable {
 public:
  CommandTable();

  Invocation Read(std::vector<std::string> words);

  CLI::App App{
      "Operates pan-tilt-zoom cameras: finds them, gives them names, does every operation and tells each "
      "request that it took.",
      "ptzctl"};

 private:
  Invocation Invocation_;
  std::optional<OperationParser> Operations_;
};

CommandTable::CommandTable() {
  auto& app = App;
  auto& invocation = Invocation_;
  app.set_version_flag("--version", "ptzctl " PTZD_VERSION);
  app.require_subcommand(1);
  app.fallthrough();
  DeclareCommonOptions(app, invocation);
  const auto declare = [&](const char* group, const auto& commands) {
    const auto all = [](const CLI::App*) { return true; };
    const auto before = app.get_subcommands(all).size();
    commands();
    const auto after = app.get_subcommands(all);
    for (auto i = before; i < after.size(); ++i)
      if (!after[i]->get_group().empty()) after[i]->group(group);
  };
  declare("Which camera", [&] {
    DeclareLists(app, invocation);
    DeclareCameras(app, invocation);
    DeclareSearch(app, invocation);
  });
  declare("Operations", [&] { Operations_.emplace(app); });
  declare("More than one operation", [&] {
    DeclareRuns(app, invocation);
    DeclareCheck(app, invocation);
  });
  declare("For the shell", [&] { DeclareTexts(app, invocation); });
  app.footer(Footer);  // from here on, so that it is not the operations' too
}

Invocation CommandTable::Read(std::vector<std::string> words) {
  if (words.empty()) throw HelpRequest(App.help());
  SpellOutCamera(App, words);
  Parse(App, std::move(words));
  Invocation_.Chosen = Operations_->Chosen();
  if (!Invocation_.Perform) Invocation_.Perform = RunOperation;
  return Invocation_;
}

int PrintCompletionScript(const Invocation& invocation, Report& report) {
  return ShowText(report, CompletionScript(invocation.Word));
}

/// A candidate in each line, and behind a tabulator what it is; ":file" where files are wanted.
int PrintCompletion(const Invocation& invocation, Report& report) {
  const CommandTable commands;
  const auto completion = Complete(commands.App, invocation.Word);
  std::string text = completion.IsFile ? ":file\n" : "";
  for (const auto& [word, about] : completion.Candidates)
    text.append(word).append("\t").append(about) += '\n';
  return ShowText(report, text);
}

class LineTable {
 public:
  CLI::App App{"Operations; help OPERATION tells more about one, quit ends.", ""};
  OperationParser Operations{App};

  LineTable() {
    App.require_subcommand(1);
    App.fallthrough();
  }
};

/// Of all lines, since declaring it takes longer than reading one.
LineTable& Lines() {
  static LineTable lines;
  return lines;
}

}  // namespace

Invocation ParseCommandLine(int argc, char** argv) { return CommandTable().Read({argv + 1, argv + argc}); }

Completion CompleteLine(const std::string& line, const Presets& presets) {
  return Complete(Lines().App, line, presets);
}

std::optional<Operation> ParseLine(const std::string& line) {
  auto words = SplitWords(line);
  if (words.empty() || words.front().starts_with('#')) return std::nullopt;
  if (words.front() == "help") {
    words.erase(words.begin());
    words.push_back("--help");
  }
  auto& lines = Lines();
  lines.Operations.Forget();
  Parse(lines.App, std::move(words));
  return lines.Operations.Chosen();
}

}  // namespace ptzctl
