#pragma once

#include <map>
#include <string>

#include "ace/Basic_Types.h"
#include "ace/Time_Value.h"

/**
 * Shell commands that run in a container around a piece of work: before it, after its success, after its failure. Who
 * makes the handler decides when each list runs.
 *
 * A text of commands may name secrets between double braces, as "{{password}}". It is sent as
 * `echo "TEXT" > /tmp/NAME && sh /tmp/NAME`, with a random name: so a double quote or `$` in it acts at the echo, and
 * the file stays behind. Secrets come enciphered for the host (Host_Manager, RSA_Decoder) and are deciphered at the
 * last moment; neither they nor the text with them goes into a log.
 *
 * Life: keeps references to the texts and the parameters, which the caller keeps alive and unchanged in variables of
 * its own. Threads: any, since a call has its own session and shares nothing else.
 */
class K8S_Websocket_Command_Handler {
 public:
  /// What stands between a pod's self link and the encoded script in the URL of an exec request.
  static constexpr char exec_query[] =
      "/exec?stderr=True&stdin=True&stdout=True&tty=False&command=/bin/sh&command=-c&command=";

  /// One text of commands. It can be run again; each run deciphers and connects anew.
  class Command_Handler {
   public:
    /// @param cmds     the text; empty: nothing to run.
    /// @param params   from the name of a secret to its value, RSA (OAEP, SHA-256) in base64.
    /// @param timeout  seconds that a run waits for each frame of output.
    Command_Handler(const std::string& cmds, const std::map<std::string, std::string>& params, ACE_UINT64 timeout);

    /**
     * Runs the commands and waits for their end.
     *
     * All parameters are deciphered, also those that the text doesn't name; a name without a parameter stays in the
     * text. A name is a regular expression, and a value a format of its replacement.
     *
     * @param url       exec URL of the container, up to and with exec_query.
     * @param response  their output is put behind what it holds.
     * @retval true   they have ended with exit code 0, or there are none: then @a response is left alone.
     * @retval false  the cause is in the log, at LM_ERROR.
     */
    bool operator()(const std::string& url, std::string& response) const;
    /// The same; the output is dropped.
    bool operator()(const std::string& url) const;

   private:
    bool fill_in(std::string& text) const;

    const std::string& cmds_;
    const std::map<std::string, std::string>& params_;
    const ACE_Time_Value timeout_;
  };

  /// @param url  exec URL, see Command_Handler; the other arguments are those of the three handlers.
  K8S_Websocket_Command_Handler(std::string url, const std::string& pre_cmds, const std::string& on_success_cmds,
                                const std::string& on_failure_cmds,
                                const std::map<std::string, std::string>& cmds_params, ACE_UINT64 timeout);
  virtual ~K8S_Websocket_Command_Handler();

  // Each runs its commands, and drops their output. False as told at Command_Handler.
  virtual bool handle_pre_commands_result() const;
  virtual bool handle_on_success_commands_result() const;
  virtual bool handle_on_failure_commands_result() const;

 private:
  const std::string url_;
  const Command_Handler pre_cmds_handler_;
  const Command_Handler on_success_cmds_handler_;
  const Command_Handler on_failure_cmds_handler_;
};
