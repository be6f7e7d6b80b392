# fish completion for tidewick(1): commands, options, agents, and the short
# identifiers of the sessions holding a request (asked of the running
# application). Installed as share/fish/vendor_completions.d/tidewick.fish.

set -l commands app status connect disconnect sessions pending allow answer deny reply end let-stop transcript handoff usage demo service pause resume gate safe settings forget
set -l agents claude codex cursor antigravity
set -l top "not __fish_seen_subcommand_from $commands"

complete -c tidewick -f
complete -c tidewick -n $top -l version -d 'Print the version'
complete -c tidewick -n $top -a app -d 'Run Tidewick until you stop it (Ctrl-C)'
complete -c tidewick -n $top -a status -d 'Show whether each agent is connected'
complete -c tidewick -n $top -a connect -d "Add Tidewick's hooks to an agent's configuration"
complete -c tidewick -n $top -a disconnect -d "Remove Tidewick's hooks from an agent's configuration"
complete -c tidewick -n $top -a sessions -d "List the running application's sessions"
complete -c tidewick -n $top -a pending -d 'List the requests waiting for you'
complete -c tidewick -n $top -a allow -d 'Allow the permission request a session is waiting on'
complete -c tidewick -n $top -a answer -d 'Answer the questions a session is asking, one text per question'
complete -c tidewick -n $top -a deny -d 'Deny the permission request a session is waiting on'
complete -c tidewick -n $top -a reply -d 'Answer a session that waits for you, or continue one that holds nothing'
complete -c tidewick -n $top -a end -d 'End a session: interrupt its agent and mark it ended by you'
complete -c tidewick -n $top -a let-stop -d 'Let a session that waits for you end its turn'
complete -c tidewick -n $top -a transcript -d "Show a session's transcript, as its agent recorded it"
complete -c tidewick -n $top -a handoff -d 'Write a Markdown handoff from which another agent can carry a session on'
complete -c tidewick -n $top -a usage -d "Show how much of each agent's usage limits is used, and tokens per session"
complete -c tidewick -n $top -a demo -d 'Run four scripted agent sessions against the running Tidewick app'
complete -c tidewick -n $top -a service -d 'Run Tidewick as a systemd user service, in the background from login'
complete -c tidewick -n $top -a pause -d 'Hold nothing and answer nothing until you resume (requests held stay held)'
complete -c tidewick -n $top -a resume -d "Hold your agents' requests again after a pause"
complete -c tidewick -n $top -a gate -d "Turn holding Cursor's or Antigravity's shell commands on or off"
complete -c tidewick -n $top -a safe -d 'Edit the command prefixes that only read (safePrefixes)'
complete -c tidewick -n $top -a settings -d 'List every setting with its value and default'
complete -c tidewick -n $top -a forget -d 'Remove an ended or idle session from the list, or --all of them'

complete -c tidewick -s h -l help -d 'Print help'
complete -c tidewick -n '__fish_seen_subcommand_from app' -l headless -d 'Run without the terminal interface'
complete -c tidewick -n '__fish_seen_subcommand_from app' -l no-color -d 'Show the interface without colours'
complete -c tidewick -n '__fish_seen_subcommand_from usage' -l json -d 'Print JSON'
complete -c tidewick -n '__fish_seen_subcommand_from status sessions pending' -l json -d 'Print JSON'
complete -c tidewick -n '__fish_seen_subcommand_from connect disconnect' -a "$agents"
complete -c tidewick -n '__fish_seen_subcommand_from connect' -l gate-commands -d 'Cursor: hold shell and MCP calls until you answer'
complete -c tidewick -n '__fish_seen_subcommand_from connect disconnect' -s y -l yes -d 'Apply without asking'
complete -c tidewick -n '__fish_seen_subcommand_from allow answer deny reply let-stop' -l agent -x -a "$agents" -d "Only this agent's sessions"
complete -c tidewick -n '__fish_seen_subcommand_from allow' -l always -d 'Also have the agent stop asking for such calls'
complete -c tidewick -n '__fish_seen_subcommand_from deny' -s m -l message -x -d 'Tell the agent why'
complete -c tidewick -n '__fish_seen_subcommand_from end' -l agent -x -a "$agents" -d "Only this agent's sessions"
complete -c tidewick -n '__fish_seen_subcommand_from allow answer deny let-stop' -a '(tidewick pending --json 2>/dev/null | string match -rg \'"shortId": *"([^"]*)"\')' -d 'Holds a request'
complete -c tidewick -n '__fish_seen_subcommand_from transcript handoff' -l agent -x -a "$agents" -d "Only this agent's sessions"
complete -c tidewick -n '__fish_seen_subcommand_from transcript' -l json -d 'Print JSON'
complete -c tidewick -n '__fish_seen_subcommand_from transcript' -l tail -x -d 'Only the last N entries'
complete -c tidewick -n '__fish_seen_subcommand_from handoff' -s o -l output -r -d 'Where to write it (- for standard output)'
complete -c tidewick -n '__fish_seen_subcommand_from transcript handoff reply end' -a '(tidewick sessions --json 2>/dev/null | string match -rg \'"shortId": *"([^"]*)"\')' -d 'Session'
complete -c tidewick -n '__fish_seen_subcommand_from service' -a 'install uninstall status'
complete -c tidewick -n '__fish_seen_subcommand_from pause' -l for -x -d 'Resume by itself after this long (90s, 30m, 2h, 1d)'
complete -c tidewick -n '__fish_seen_subcommand_from gate; and not __fish_seen_subcommand_from cursor antigravity' -a 'cursor antigravity'
complete -c tidewick -n '__fish_seen_subcommand_from gate; and __fish_seen_subcommand_from cursor antigravity' -a 'on off'
complete -c tidewick -n '__fish_seen_subcommand_from safe; and not __fish_seen_subcommand_from add remove list' -a 'add remove list'
complete -c tidewick -n '__fish_seen_subcommand_from settings; and not __fish_seen_subcommand_from set' -l json -d 'Print JSON'
complete -c tidewick -n '__fish_seen_subcommand_from settings; and not __fish_seen_subcommand_from set' -a set -d 'Check and change one setting'
complete -c tidewick -n '__fish_seen_subcommand_from settings; and __fish_seen_subcommand_from set' -a '(tidewick settings --json 2>/dev/null | string match -rg \'"name": *"([^"]*)"\')' -d 'Setting'
complete -c tidewick -n '__fish_seen_subcommand_from forget' -l agent -x -a "$agents" -d "Only this agent's sessions"
complete -c tidewick -n '__fish_seen_subcommand_from forget' -l all -d 'Erase the history'
complete -c tidewick -n '__fish_seen_subcommand_from forget' -a '(tidewick sessions --json 2>/dev/null | string match -rg \'"shortId": *"([^"]*)"\')' -d 'Session'
