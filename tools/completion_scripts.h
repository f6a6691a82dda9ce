// What the completion of each shell consists of beside the rows that are made from the tree of
// commands.
#pragma once

namespace tool {

// Between head and tail stand the cases of a table by the command's path, each of which sets
// "verbs", "options", "values" (NAME=WORDS of each option that takes a value) and "places" (WORDS
// of each word that stands for itself). WORDS are words, FILE for a file's name, COMMAND for a
// command.
inline constexpr const char* bashHead =
    R"SH(# Completes the words of zorreg in bash; "zorreg completion bash" made it.

_zorreg_table() {
  verbs= options= values=() places=()
  case $1 in
)SH";

inline constexpr const char* bashTail = R"SH(  esac
}

_zorreg_words() {  # what WORDS stand for
  case $1 in
    FILE)
      compopt -o filenames 2>/dev/null
      mapfile -t COMPREPLY < <(compgen -f -- "$current")
      ;;
    COMMAND)
      _zorreg_table ''
      _zorreg_words "$verbs"
      ;;
    *) mapfile -t COMPREPLY < <(compgen -W "$1" -- "$current") ;;
  esac
}

_zorreg_value() {  # the WORDS of option $1; fails when it takes no value
  local row
  for row in "${values[@]}"; do
    [ "${row%%=*}" != "$1" ] || { words=${row#*=}; return 0; }
  done
  return 1
}

_zorreg() {
  local IFS=$' \t\n' verbs options values places words
  local path= count=0 option= word current=${COMP_WORDS[COMP_CWORD]} i
  [ "$current" != = ] || current=
  COMPREPLY=()
  _zorreg_table "$path"
  for ((i = 1; i < COMP_CWORD; ++i)); do
    word=${COMP_WORDS[i]}
    if [ "$word" = = ]; then
      continue
    elif [ -n "$option" ]; then
      option=
    elif [[ $word == -* ]]; then
      if _zorreg_value "$word"; then option=$word; fi
    elif [ "$count" -ge "${#places[@]}" ] && [[ " $verbs " == *" $word "* ]]; then
      path=${path:+$path }$word count=0
      _zorreg_table "$path"
    else
      count=$((count + 1))
    fi
  done
  if [ -n "$option" ]; then
    _zorreg_value "$option" && _zorreg_words "$words"
  elif [[ $current == -* ]]; then
    _zorreg_words "$options"
  elif [ "$count" -lt "${#places[@]}" ]; then
    _zorreg_words "${places[count]}"
  else
    _zorreg_words "$verbs"
  fi
}

complete -F _zorreg zorreg
)SH";

inline constexpr const char* zshHead = R"SH(#compdef zorreg
# Completes the words of zorreg in zsh; "zorreg completion zsh" made it.

)SH";

inline constexpr const char* zshTail = R"SH(if [ "$funcstack[1]" = _zorreg ]; then
  _zorreg_ "$@"
else
  compdef _zorreg_ zorreg
fi
)SH";

// Takes the paths of all commands, "PATH OPTION" of all options that take a value, and "COUNT PATH"
// where a command with verbs takes a word that is none.
inline constexpr const char* fishHead =
    R"SH(# Completes the words of zorreg in fish; "zorreg completion fish" made it.

set -g __zorreg_commands %s
set -g __zorreg_valued %s
set -g __zorreg_places %s

# Where the command line has come to: how many words stand behind the last command, and its path.
function __zorreg_place
    set -l path ''
    set -l count 0
    set -l skip 0
    for word in (commandline -opc)[2..-1]
        set -l next (string trim -- "$path $word")
        if test $skip = 1
            set skip 0
        else if string match -q -- '-*' $word
            contains -- "$path $word" $__zorreg_valued; and set skip 1
        else if not contains -- "$count $path" $__zorreg_places; and contains -- $next $__zorreg_commands
            set path $next
            set count 0
        else
            set count (math $count + 1)
        end
    end
    echo $count
    echo $path
end

function __zorreg_at --argument-names count path
    set -l place (__zorreg_place)
    test "$place[1]" = "$count" -a "$place[2]" = "$path"
end

function __zorreg_in --argument-names path
    set -l place (__zorreg_place)
    test "$place[2]" = "$path"
end

complete -c zorreg -f
)SH";

}  // namespace tool
