# Completion of keygen for fish.

# Succeeds if the word under the cursor is value number $argv[1] of one of the options that follow it.
function __keygen_is_value
    set -l words (commandline -opc)
    set -l count 1
    for word in $words[-1..2]
        if string match -q -- '-*' $word
            contains -- (string lower -- $word) $argv[2..]
            and test $count -eq $argv[1]
            return
        end
        set count (math $count + 1)
    end
    return 1
end

# Succeeds if an option may come here: not if the last one still needs a value. The test of the word keeps fish from
# offering options that merely contain it.
function __keygen_may_be_option
    string match -qr -- '^(-|$)' (commandline -ct)
    and not __keygen_is_value 1 -pwd --password -n --number-key -abs --absolute-path -prvk --private-key \
        -pubk --public-key -hash --public-key-hash -ecc --ecc-algo -pe --prvkey-enc -rand --random
    and not __keygen_is_value 2 -rand --random
end

# Values are completed by position, because an option may take several.
complete -c keygen -f
complete -c keygen -n '__keygen_is_value 1 -n --number-key' -a 1 -d 'one pair, numbered'
complete -c keygen -n '__keygen_is_value 1 -n --number-key' -a 8 -d 'a packet of eight pairs'
complete -c keygen -n '__keygen_is_value 1 -ecc --ecc-algo' -a prime256v1 -d 'the default'
complete -c keygen -n '__keygen_is_value 1 -ecc --ecc-algo' -a brainpoolP256t1 -d 'the Brainpool curve, twisted'
complete -c keygen -n '__keygen_is_value 1 -pe' -a aes256 -d 'AES-256-CBC, the default'
complete -c keygen -n '__keygen_is_value 1 -pe' -a aes128 -d AES-128-CBC
complete -c keygen -n '__keygen_is_value 1 -abs --absolute-path' -a '(__fish_complete_directories)'
complete -c keygen -n '__keygen_is_value 1 -prvk --private-key -pubk --public-key' -a '(__keygen_files .pem)'
complete -c keygen -n '__keygen_is_value 1 -hash' -a '(__keygen_files .bin)'
complete -c keygen -n '__keygen_is_value 2 -rand --random' -a '(__keygen_files .bin)'

# Folders, and files whose name ends in $argv[1].
function __keygen_files
    __fish_complete_path (commandline -ct) | while read -l line
        set -l name (string split -f 1 \t -- $line)
        if string match -q -- '*/' $name; or string match -q -- "*$argv[1]" $name
            printf '%s\n' $name
        end
    end
end

complete -c keygen -n __keygen_may_be_option -a '-pwd --password' -d 'password of the private key, or eight for a packet'
complete -c keygen -n __keygen_may_be_option -a '-n --number-key' -d 'number of key pairs'
complete -c keygen -n __keygen_may_be_option -a '-abs --absolute-path' -d 'folder for the output files'
complete -c keygen -n __keygen_may_be_option -a '-prvk --private-key' -d 'file of the private key'
complete -c keygen -n __keygen_may_be_option -a '-pubk --public-key' -d 'file of the public key'
complete -c keygen -n __keygen_may_be_option -a -hash -d 'file of the public key hash'
complete -c keygen -n __keygen_may_be_option -a --public-key-hash -d 'accepted and ignored: use -hash'
complete -c keygen -n __keygen_may_be_option -a '-ecc --ecc-algo' -d 'curve of the keys'
complete -c keygen -n __keygen_may_be_option -a -pe -d 'cipher of the private key file'
complete -c keygen -n __keygen_may_be_option -a --prvkey-enc -d 'accepted and ignored: use -pe'
complete -c keygen -n __keygen_may_be_option -a '-rand --random' -d 'fill a file with random bytes'
complete -c keygen -n __keygen_may_be_option -a '-h "-?" --help' -d 'show the help text'
complete -c keygen -n __keygen_may_be_option -a '-v --version' -d 'show the version'
