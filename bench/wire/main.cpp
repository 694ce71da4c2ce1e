// veldrift-wire: plays coded pictures through the session's own path and real sockets, and receives
// them whole on the other side, so that other transports can be measured beside ours on the same
// pictures.
#include <CLI/CLI.hpp>

#include "bench/wire/receive.h"
#include "bench/wire/send.h"

int main(int argc, char** argv) {
  using namespace Veldrift;
  CLI::App app("Sends or receives coded pictures over the media path, without pairing or decoding");
  app.require_subcommand(1);

  WireSendOptions sendOptions;
  CLI::App* send = app.add_subcommand("send", "Plays an Annex B file, one access unit a tick");
  send->add_option("--coded", sendOptions.coded, "H.264 or HEVC in Annex B")->required();
  send->add_option("--fps", sendOptions.fps, "Access units a second")->default_val(60);
  send->add_option("--seconds", sendOptions.seconds, "How long; the file repeats")->default_val(10);
  send->add_option("--to", sendOptions.to, "The receiver's IPv4 address")->required();
  send->add_option("--log", sendOptions.log, "Writes a line a frame: index t0_ns sent_ns bytes idr")
      ->required();

  WireReceiveOptions receiveOptions;
  CLI::App* receive = app.add_subcommand("receive", "Receives and repairs, without decoding");
  receive->add_option("--bind", receiveOptions.bind, "The local IPv4 address")->required();
  receive->add_option("--seconds", receiveOptions.seconds, "How long")->default_val(12);
  receive->add_option("--log", receiveOptions.log, "Writes a line a whole frame: index t_ns")
      ->required();
  receive->add_option("--drop", receiveOptions.loss.dropPercent, "Simulated loss on arrival");
  receive->add_option("--reorder", receiveOptions.loss.reorderPercent, "Simulated reordering");
  receive->add_option("--seed", receiveOptions.loss.seed, "Of the simulation");

  CLI11_PARSE(app, argc, argv);
  return *send ? WireSend(sendOptions) : WireReceive(receiveOptions);
}
