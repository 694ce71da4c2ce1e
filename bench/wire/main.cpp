// veldrift-wire: plays coded pictures through the session's own path and real sockets, and receives
// them whole on the other side, so that other transports can be measured beside ours on the same
// pictures.
#include <CLI/CLI.hpp>

#include <string>
#include <vector>

#include "bench/wire/bare.h"
#include "bench/wire/compare.h"
#include "bench/wire/receive.h"
#include "bench/wire/send.h"

int main(int argc, char** argv) {
  using namespace Veldrift;
  CLI::App app("Sends or receives coded pictures over the media path, without pairing or decoding");
  app.require_subcommand(1);

  WireSendOptions sendOptions;
  CLI::App* send = app.add_subcommand("send", "Plays access units, one a tick");
  CLI::Option* coded = send->add_option("--coded", sendOptions.coded, "H.264 or HEVC in Annex B");
  send->add_option("--mbps", sendOptions.mbps, "Without a file: of generated pictures")
      ->default_val(20)
      ->excludes(coded);
  bool bare = false;
  send->add_flag("--bare", bare, "As plain UDP fragments, without parity and pacing");
  send->add_option("--fps", sendOptions.fps, "Access units a second")->default_val(60);
  send->add_option("--seconds", sendOptions.seconds, "How long; the file repeats")->default_val(10);
  send->add_option("--to", sendOptions.to, "The receiver's IPv4 address")->required();
  send->add_option("--log", sendOptions.log, "Writes a line a frame: index t0_ns sent_ns bytes idr")
      ->required();

  WireReceiveOptions receiveOptions;
  CLI::App* receive = app.add_subcommand("receive", "Receives and repairs, without decoding");
  receive->add_option("--bind", receiveOptions.bind, "The local IPv4 address")->required();
  receive->add_flag("--bare", bare, "What send --bare sends");
  receive->add_option("--seconds", receiveOptions.seconds, "How long")->default_val(12);
  receive->add_option("--log", receiveOptions.log, "Writes a line a whole frame: index t_ns")
      ->required();
  receive->add_option("--drop", receiveOptions.loss.dropPercent, "Simulated loss on arrival");
  receive->add_option("--reorder", receiveOptions.loss.reorderPercent, "Simulated reordering");
  receive->add_option("--seed", receiveOptions.loss.seed, "Of the simulation");

  std::vector<std::string> pacedRuns, bareRuns, lossyRuns;
  std::vector<double> losses;
  CLI::App* compare = app.add_subcommand("compare", "Reads the logs NAME.send and NAME.receive");
  compare->add_option("--paced", pacedRuns, "Names of runs of the media path");
  compare->add_option("--bare", bareRuns, "Names of runs of bare UDP");
  compare->add_option("--lossy", lossyRuns, "Names of runs with loss");
  compare->add_option("--loss", losses, "Its percentages, in the same order");

  CLI11_PARSE(app, argc, argv);
  if (*send) return bare ? BareSend(sendOptions) : WireSend(sendOptions);
  if (*receive) return bare ? BareReceive(receiveOptions) : WireReceive(receiveOptions);
  const int status = pacedRuns.empty() ? 0 : CompareDelays(pacedRuns, bareRuns);
  return status != 0 ? status : CompareRepair(lossyRuns, losses);
}
