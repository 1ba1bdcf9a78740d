# Bash completion for pallion: options, their fixed words, and file names.
_pallion() {
    local cur prev
    cur="${COMP_WORDS[COMP_CWORD]}"
    prev="${COMP_WORDS[COMP_CWORD-1]}"
    case "$prev" in
        --delimiter)
            COMPREPLY=($(compgen -W "auto space tab comma semicolon pipe whitespace" -- "$cur"))
            return ;;
        --comments)
            COMPREPLY=($(compgen -W "auto none '#' //" -- "$cur"))
            return ;;
        --header)
            COMPREPLY=($(compgen -W "auto 0 1 2" -- "$cur"))
            return ;;
        --parse)
            COMPREPLY=($(compgen -W "auto Positions:point:0+1+2 Positions:point:X+Y+Z" -- "$cur"))
            return ;;
        -o|--output)
            COMPREPLY=($(compgen -f -X '!*.@(ply|h5|hdf5|las)' -- "$cur") $(compgen -d -- "$cur"))
            return ;;
        --preview)
            COMPREPLY=($(compgen -f -X '!*.png' -- "$cur") $(compgen -d -- "$cur"))
            return ;;
        --block|--epsg|--max-line|--las-scale|--threads)
            return ;;
    esac
    if [[ "$cur" == -* ]]; then
        COMPREPLY=($(compgen -W "--header --delimiter --block --threads --epsg --parse --trajectory --json --preview
            --output --las-scale --strict --max-line --quiet --version --help --comments --decimal-comma
            --decimal-point --lenient" -- "$cur"))
    else
        COMPREPLY=($(compgen -f -- "$cur"))
    fi
}
complete -o filenames -F _pallion pallion
