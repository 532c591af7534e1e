// Where the mail server's state lives. One search for a macro finds every writer and reader.
#ifndef QV_MAPFILES_H
#define QV_MAPFILES_H

#define VDOMAINFILE "/etc/VirtualHosts"  // hosted domains, one a line
#define VMAPDIR "/etc/vmail"             // directory of the map files
#define VPASSWDFILE VMAPDIR "/vpasswd"   // mail accounts, in passwd format
#define VSHADOWFILE VMAPDIR "/vshadow"   // their password hashes, in shadow format
#define VMAPSFILE VMAPDIR "/vmaps.txt"   // address or "@domain" -> inbox file below the spool
#define VALIASFILE VMAPDIR "/valias.txt" // forwarders and mailing lists
#define VQUOTAFILE VMAPDIR "/vquota.txt" // address, tab, quota
#define VSPOOLDIR "/var/spool/vmail"     // mail, one subtree per domain
#define QVCONFFILE "/etc/Quorvel.conf"   // the product configuration file

// What transactions use, for root alone: the staged maps and their lookup tables, and the journal
// of a commit that is being carried out or was interrupted. The directory is also their lock. The
// copy of the domain list is staged beside the list, since /etc may be another file system than
// /etc/vmail, and a rename cannot cross file systems.
#define VSTAGEDIR VMAPDIR "/transaction"
#define VJOURNALFILE VSTAGEDIR "/journal"
#define VLISTSTAGEDIR VDOMAINFILE "-transaction"

#endif
